#include "AnimationController.h"

#include <algorithm>
#include <new>

namespace {

D3DXTRACK_DESC defaultTrack()
{
    D3DXTRACK_DESC desc{};
    desc.Priority = D3DXPRIORITY_LOW;
    desc.Weight = 1.0f;
    desc.Speed = 1.0f;
    desc.Position = 0.0;
    desc.Enable = TRUE;
    return desc;
}

void mix(D3DXVECTOR3& into, const D3DXVECTOR3& from, float f)
{
    into += (from - into) * f;
}

void mix(D3DXQUATERNION& into, const D3DXQUATERNION& from, float f)
{
    D3DXQUATERNION a = into;
    D3DXQuaternionSlerp(&into, &a, &from, f);
}

// S * R * T for row vectors, without the three general products.
void composeMatrix(D3DXMATRIX& m, const D3DXVECTOR3& s, const D3DXQUATERNION& r, const D3DXVECTOR3& t)
{
    D3DXMatrixRotationQuaternion(&m, &r);
    for (int c = 0; c < 3; ++c) {
        m.m[0][c] *= s.x;
        m.m[1][c] *= s.y;
        m.m[2][c] *= s.z;
    }
    m._41 = t.x;
    m._42 = t.y;
    m._43 = t.z;
}

} // namespace

AnimationController::AnimationController(UINT maxOutputs, UINT maxSets, UINT maxTracks, UINT maxEvents)
    : m_maxOutputs(maxOutputs), m_maxSets(maxSets), m_maxEvents(maxEvents), m_tracks(maxTracks)
{
    for (Track& track : m_tracks)
        track.desc = defaultTrack();
    m_outputs.reserve(maxOutputs);
    m_sets.reserve(maxSets);
}

AnimationController::~AnimationController()
{
    for (ID3DXAnimationSet* set : m_sets)
        set->Release();
    for (Track& track : m_tracks) {
        if (track.set)
            track.set->Release();
    }
}

HRESULT AnimationController::QueryInterface(REFIID riid, void** out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_ID3DXAnimationController)) {
        AddRef();
        *out = this;
        return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
}

ULONG AnimationController::AddRef()
{
    return InterlockedIncrement(&m_references);
}

ULONG AnimationController::Release()
{
    ULONG left = InterlockedDecrement(&m_references);
    if (left == 0)
        delete this;
    return left;
}

UINT AnimationController::GetMaxNumAnimationOutputs()
{
    return m_maxOutputs;
}

UINT AnimationController::GetMaxNumAnimationSets()
{
    return m_maxSets;
}

UINT AnimationController::GetMaxNumTracks()
{
    return UINT(m_tracks.size());
}

UINT AnimationController::GetMaxNumEvents()
{
    return m_maxEvents;
}

// Registering a name again replaces its destinations.
HRESULT AnimationController::RegisterAnimationOutput(const char* name, D3DXMATRIX* matrix, D3DXVECTOR3* scale,
                                                     D3DXQUATERNION* rotation, D3DXVECTOR3* translation)
{
    if (!name)
        return D3DERR_INVALIDCALL;
    Output output{name, matrix, scale, rotation, translation};
    auto known = m_outputByName.find(output.name);
    if (known != m_outputByName.end()) {
        m_outputs[known->second] = output;
        return S_OK;
    }
    if (m_outputs.size() >= m_maxOutputs)
        return D3DERR_INVALIDCALL;
    m_outputByName.emplace(output.name, int(m_outputs.size()));
    m_outputs.push_back(output);
    m_bindingsStale = true;
    return S_OK;
}

HRESULT AnimationController::RegisterAnimationSet(ID3DXAnimationSet* set)
{
    if (!set || m_sets.size() >= m_maxSets || std::find(m_sets.begin(), m_sets.end(), set) != m_sets.end())
        return D3DERR_INVALIDCALL;
    set->AddRef();
    m_sets.push_back(set);
    return S_OK;
}

// Tracks keep playing a set after it leaves the registry: they hold their own reference.
HRESULT AnimationController::UnregisterAnimationSet(ID3DXAnimationSet* set)
{
    auto found = std::find(m_sets.begin(), m_sets.end(), set);
    if (!set || found == m_sets.end())
        return D3DERR_INVALIDCALL;
    m_sets.erase(found);
    set->Release();
    return S_OK;
}

UINT AnimationController::GetNumAnimationSets()
{
    return UINT(m_sets.size());
}

HRESULT AnimationController::GetAnimationSet(UINT index, ID3DXAnimationSet** set)
{
    if (!set || index >= m_sets.size())
        return D3DERR_INVALIDCALL;
    *set = m_sets[index];
    (*set)->AddRef();
    return S_OK;
}

HRESULT AnimationController::GetAnimationSetByName(const char* name, ID3DXAnimationSet** set)
{
    if (!name || !set)
        return D3DERR_INVALIDCALL;
    for (ID3DXAnimationSet* candidate : m_sets) {
        const char* candidateName = candidate->GetName();
        if (candidateName && std::string(candidateName) == name) {
            *set = candidate;
            candidate->AddRef();
            return S_OK;
        }
    }
    *set = nullptr;
    return D3DERR_NOTFOUND;
}

void AnimationController::bindTrack(Track& track)
{
    track.outputOfAnimation.clear();
    if (!track.set)
        return;
    UINT count = track.set->GetNumAnimations();
    track.outputOfAnimation.resize(count, -1);
    for (UINT a = 0; a < count; ++a) {
        const char* name = nullptr;
        if (FAILED(track.set->GetAnimationNameByIndex(a, &name)) || !name)
            continue;
        auto output = m_outputByName.find(name);
        if (output != m_outputByName.end())
            track.outputOfAnimation[a] = output->second;
    }
}

void AnimationController::bindTracks()
{
    for (Track& track : m_tracks)
        bindTrack(track);
    m_bindingsStale = false;
}

// Folds one track into the blend of its priority group: a running weighted average, so that
// the group result does not depend on the weights summing to one.
void AnimationController::accumulateTrack(const Track& track)
{
    const float weight = track.desc.Weight;
    const double position = track.set->GetPeriodicPosition(track.desc.Position);
    std::vector<Blend>& blends = m_blends[track.desc.Priority == D3DXPRIORITY_HIGH ? 1 : 0];
    for (size_t a = 0; a < track.outputOfAnimation.size(); ++a) {
        int output = track.outputOfAnimation[a];
        if (output < 0)
            continue;
        D3DXVECTOR3 s, t;
        D3DXQUATERNION r;
        if (FAILED(track.set->GetSRT(position, UINT(a), &s, &r, &t)))
            continue;
        Blend& blend = blends[output];
        if (blend.weight <= 0) {
            blend = {weight, s, r, t};
            continue;
        }
        blend.weight += weight;
        float f = weight / blend.weight;
        mix(blend.scale, s, f);
        mix(blend.rotation, r, f);
        mix(blend.translation, t, f);
    }
}

// The priority blend weight is the share of the high-priority group where both groups animate
// an output.
void AnimationController::writeOutput(const Output& output, const Blend* high, const Blend* low)
{
    Blend result = high ? *high : *low;
    if (high && low) {
        result = *low;
        mix(result.scale, high->scale, m_priorityBlend);
        mix(result.rotation, high->rotation, m_priorityBlend);
        mix(result.translation, high->translation, m_priorityBlend);
    }
    if (output.matrix)
        composeMatrix(*output.matrix, result.scale, result.rotation, result.translation);
    if (output.scale)
        *output.scale = result.scale;
    if (output.rotation)
        *output.rotation = result.rotation;
    if (output.translation)
        *output.translation = result.translation;
}

// Reports the callback keys a track passed over, (from, to], in the direction it plays.
void AnimationController::reportCallbacks(UINT track, double from, double to, ID3DXAnimationCallbackHandler* handler)
{
    const bool forward = to >= from;
    const DWORD flags = D3DXCALLBACK_SEARCH_EXCLUDING_INITIAL_POSITION |
                        (forward ? 0 : D3DXCALLBACK_SEARCH_BEHIND_INITIAL_POSITION);
    ID3DXAnimationSet* set = m_tracks[track].set;
    double at = from;
    // Bounded: a huge step over a short looping set must not stall the caller.
    for (int reported = 0; reported < 1024; ++reported) {
        double position = 0;
        void* data = nullptr;
        if (FAILED(set->GetCallback(at, flags, &position, &data)))
            return;
        if (forward ? position > to : position < to)
            return;
        handler->HandleCallback(track, data);
        at = position;
    }
}

// Moves global time and every enabled track, then blends the enabled tracks into the outputs.
// Outputs that no enabled track animates keep their values.
HRESULT AnimationController::AdvanceTime(double timeDelta, ID3DXAnimationCallbackHandler* handler)
{
    if (m_bindingsStale)
        bindTracks();
    m_time += timeDelta;
    for (auto& blends : m_blends)
        blends.assign(m_outputs.size(), Blend{0, {}, {}, {}});
    for (UINT t = 0; t < m_tracks.size(); ++t) {
        Track& track = m_tracks[t];
        if (!track.desc.Enable || !track.set)
            continue;
        const double from = track.desc.Position;
        track.desc.Position += timeDelta * track.desc.Speed;
        if (handler && track.desc.Position != from)
            reportCallbacks(t, from, track.desc.Position, handler);
        if (track.desc.Weight > 0)
            accumulateTrack(track);
    }
    for (size_t o = 0; o < m_outputs.size(); ++o) {
        const Blend* low = m_blends[0][o].weight > 0 ? &m_blends[0][o] : nullptr;
        const Blend* high = m_blends[1][o].weight > 0 ? &m_blends[1][o] : nullptr;
        if (low || high)
            writeOutput(m_outputs[o], high, low);
    }
    return S_OK;
}

// Global time restarts; track positions are the caller's and stay.
HRESULT AnimationController::ResetTime()
{
    m_time = 0;
    return S_OK;
}

double AnimationController::GetTime()
{
    return m_time;
}

HRESULT AnimationController::SetTrackAnimationSet(UINT track, ID3DXAnimationSet* set)
{
    if (!validTrack(track))
        return D3DERR_INVALIDCALL;
    if (set)
        set->AddRef();
    if (m_tracks[track].set)
        m_tracks[track].set->Release();
    m_tracks[track].set = set;
    bindTrack(m_tracks[track]);
    return S_OK;
}

HRESULT AnimationController::GetTrackAnimationSet(UINT track, ID3DXAnimationSet** set)
{
    if (!set || !validTrack(track))
        return D3DERR_INVALIDCALL;
    *set = m_tracks[track].set;
    if (*set)
        (*set)->AddRef();
    return S_OK;
}

template <class Field>
HRESULT AnimationController::setTrackField(UINT track, Field D3DXTRACK_DESC::*field, Field value)
{
    if (!validTrack(track))
        return D3DERR_INVALIDCALL;
    m_tracks[track].desc.*field = value;
    return S_OK;
}

HRESULT AnimationController::SetTrackPriority(UINT track, D3DXPRIORITY_TYPE priority)
{
    if (priority != D3DXPRIORITY_LOW && priority != D3DXPRIORITY_HIGH)
        return D3DERR_INVALIDCALL;
    return setTrackField(track, &D3DXTRACK_DESC::Priority, priority);
}

HRESULT AnimationController::SetTrackSpeed(UINT track, float speed)
{
    return setTrackField(track, &D3DXTRACK_DESC::Speed, speed);
}

HRESULT AnimationController::SetTrackWeight(UINT track, float weight)
{
    return setTrackField(track, &D3DXTRACK_DESC::Weight, weight);
}

HRESULT AnimationController::SetTrackPosition(UINT track, double position)
{
    return setTrackField(track, &D3DXTRACK_DESC::Position, position);
}

HRESULT AnimationController::SetTrackEnable(UINT track, WINBOOL enable)
{
    return setTrackField(track, &D3DXTRACK_DESC::Enable, enable ? TRUE : FALSE);
}

HRESULT AnimationController::SetTrackDesc(UINT track, D3DXTRACK_DESC* desc)
{
    if (!desc || !validTrack(track))
        return D3DERR_INVALIDCALL;
    m_tracks[track].desc = *desc;
    return S_OK;
}

HRESULT AnimationController::GetTrackDesc(UINT track, D3DXTRACK_DESC* desc)
{
    if (!desc || !validTrack(track))
        return D3DERR_INVALIDCALL;
    *desc = m_tracks[track].desc;
    return S_OK;
}

HRESULT AnimationController::SetPriorityBlend(float blendWeight)
{
    m_priorityBlend = blendWeight;
    return S_OK;
}

float AnimationController::GetPriorityBlend()
{
    return m_priorityBlend;
}

D3DXEVENTHANDLE AnimationController::KeyTrackSpeed(UINT, float, double, double, D3DXTRANSITION_TYPE)
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::KeyTrackWeight(UINT, float, double, double, D3DXTRANSITION_TYPE)
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::KeyTrackPosition(UINT, double, double)
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::KeyTrackEnable(UINT, WINBOOL, double)
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::KeyPriorityBlend(float, double, double, D3DXTRANSITION_TYPE)
{
    return 0;
}

HRESULT AnimationController::UnkeyEvent(D3DXEVENTHANDLE)
{
    return D3DERR_INVALIDCALL;
}

HRESULT AnimationController::UnkeyAllTrackEvents(UINT track)
{
    return validTrack(track) ? S_OK : D3DERR_INVALIDCALL;
}

HRESULT AnimationController::UnkeyAllPriorityBlends()
{
    return S_OK;
}

D3DXEVENTHANDLE AnimationController::GetCurrentTrackEvent(UINT, D3DXEVENT_TYPE)
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::GetCurrentPriorityBlend()
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::GetUpcomingTrackEvent(UINT, D3DXEVENTHANDLE)
{
    return 0;
}

D3DXEVENTHANDLE AnimationController::GetUpcomingPriorityBlend(D3DXEVENTHANDLE)
{
    return 0;
}

HRESULT AnimationController::ValidateEvent(D3DXEVENTHANDLE)
{
    return D3DERR_INVALIDCALL;
}

HRESULT AnimationController::GetEventDesc(D3DXEVENTHANDLE, D3DXEVENT_DESC*)
{
    return D3DERR_INVALIDCALL;
}

// The clone shares the animation sets and copies outputs, tracks (as many as fit) and time.
HRESULT AnimationController::CloneAnimationController(UINT maxOutputs, UINT maxSets, UINT maxTracks, UINT maxEvents,
                                                      ID3DXAnimationController** clone)
{
    if (!clone || maxOutputs < m_outputs.size() || maxSets < m_sets.size())
        return D3DERR_INVALIDCALL;
    AnimationController* copy = new (std::nothrow) AnimationController(maxOutputs, maxSets, maxTracks, maxEvents);
    if (!copy)
        return E_OUTOFMEMORY;
    for (const Output& output : m_outputs)
        copy->RegisterAnimationOutput(output.name.c_str(), output.matrix, output.scale, output.rotation,
                                      output.translation);
    for (ID3DXAnimationSet* set : m_sets)
        copy->RegisterAnimationSet(set);
    for (UINT t = 0; t < maxTracks && t < m_tracks.size(); ++t) {
        copy->SetTrackAnimationSet(t, m_tracks[t].set);
        copy->m_tracks[t].desc = m_tracks[t].desc;
    }
    copy->m_time = m_time;
    copy->m_priorityBlend = m_priorityBlend;
    *clone = copy;
    return S_OK;
}

extern "C" HRESULT WINAPI D3DXCreateAnimationController(UINT maxOutputs, UINT maxSets, UINT maxTracks, UINT maxEvents,
                                                        ID3DXAnimationController** controller)
{
    // A controller with no room for something is no controller: success, and nothing made.
    if (!maxOutputs || !maxSets || !maxTracks || !maxEvents || !controller)
        return D3D_OK;
    *controller = new (std::nothrow) AnimationController(maxOutputs, maxSets, maxTracks, maxEvents);
    return *controller ? S_OK : E_OUTOFMEMORY;
}
