#include <initguid.h>  // defines the D3DX interface identifiers used here

#include "Playback.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace vexilview {

namespace {

AnimationSetFacts factsOf(ID3DXAnimationSet* set, D3DXFRAME* root) {
    AnimationSetFacts facts;
    facts.name = set->GetName() ? set->GetName() : "";
    facts.seconds = std::max(0.0, set->GetPeriod());
    ID3DXKeyframedAnimationSet* keyframed = nullptr;
    if (SUCCEEDED(set->QueryInterface(IID_ID3DXKeyframedAnimationSet, reinterpret_cast<void**>(&keyframed)))) {
        facts.ticksPerSecond = keyframed->GetSourceTicksPerSecond();
        facts.looped = keyframed->GetPlaybackType() != D3DXPLAY_ONCE;
        keyframed->Release();
    }
    for (UINT i = 0; i < set->GetNumAnimations(); ++i) {
        const char* frame = nullptr;
        if (SUCCEEDED(set->GetAnimationNameByIndex(i, &frame)) && frame && !D3DXFrameFind(root, frame))
            facts.missingFrames.push_back(frame);
    }
    return facts;
}

}  // namespace

void Playback::attach(ID3DXAnimationController* controller, D3DXFRAME* root) {
    m_controller = controller;
    m_handles.clear();
    m_sets.clear();
    m_current = 0;
    m_clock = 0.0;
    if (!controller) return;
    for (UINT i = 0; i < controller->GetNumAnimationSets(); ++i) {
        ID3DXAnimationSet* set = nullptr;
        if (FAILED(controller->GetAnimationSet(i, &set)) || !set) continue;
        m_handles.push_back(set);
        m_sets.push_back(factsOf(set, root));
        set->Release();  // the controller keeps its own reference
    }
    ID3DXAnimationSet* first = nullptr;
    controller->GetTrackAnimationSet(0, &first);
    const auto found = std::find(m_handles.begin(), m_handles.end(), first);
    if (first) first->Release();
    if (!m_handles.empty()) select(found == m_handles.end() ? 0 : static_cast<unsigned>(found - m_handles.begin()));
}

int Playback::find(const std::string& nameOrIndex) const {
    for (size_t i = 0; i < m_sets.size(); ++i)
        if (m_sets[i].name == nameOrIndex) return static_cast<int>(i);
    char* end = nullptr;
    const long index = std::strtol(nameOrIndex.c_str(), &end, 10);
    const bool number = !nameOrIndex.empty() && *end == '\0';
    return number && index >= 0 && index < static_cast<long>(m_sets.size()) ? static_cast<int>(index) : -1;
}

void Playback::select(unsigned index) {
    if (!m_controller || index >= m_handles.size()) return;
    m_current = index;
    for (UINT track = 0; track < m_controller->GetMaxNumTracks(); ++track) m_controller->SetTrackEnable(track, track == 0);
    m_controller->SetTrackAnimationSet(0, m_handles[index]);
    m_controller->SetTrackWeight(0, 1.0f);
    m_controller->SetTrackSpeed(0, 1.0f);
    m_clock = 0.0;
    poseAt(0.0);
}

double Playback::position() const {
    if (m_sets.empty()) return 0.0;
    const double length = m_sets[m_current].seconds;
    if (length <= 0.0) return 0.0;
    return m_once ? std::min(m_clock, length) : std::fmod(m_clock, length);
}

void Playback::advance(double seconds) {
    m_clock += seconds * m_speed;
    poseAt(position());
}

void Playback::poseAt(double position) {
    if (!m_controller || m_handles.empty()) return;
    m_controller->SetTrackPosition(0, position);
    m_controller->AdvanceTime(0.0, nullptr);
}

}  // namespace vexilview
