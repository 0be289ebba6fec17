// AdvanceTime of the animation controller in d3dx9_37.dll against the bare matrix math it has
// to do: per animated frame and call, three key lookups, two lerps, one slerp and one matrix.
#include <initguid.h>  // defines the D3DX interface identifiers used here

#include <d3dx9.h>
#include <windows.h>

#include "BenchDevice.h"
#include "BenchFrames.h"
#include "BenchTimer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Allocator : vexilbench::FrameAllocator {
    STDMETHOD(CreateMeshContainer)(THIS_ const char*, const D3DXMESHDATA*, const D3DXMATERIAL*,
                                   const D3DXEFFECTINSTANCE*, DWORD, const DWORD*, ID3DXSkinInfo*,
                                   D3DXMESHCONTAINER** container) override
    {
        *container = nullptr;  // geometry plays no part in animation timing
        return S_OK;
    }
    STDMETHOD(DestroyMeshContainer)(THIS_ D3DXMESHCONTAINER*) override { return S_OK; }
};

// The keys of one animation, copied out of the set, and where its result goes.
struct Channel {
    std::vector<D3DXKEY_VECTOR3> scale, translation;
    std::vector<D3DXKEY_QUATERNION> rotation;
    D3DXMATRIX* output;
};

template <class Key>
size_t after(const std::vector<Key>& keys, double tick)
{
    auto it = std::upper_bound(keys.begin(), keys.end(), tick, [](double t, const Key& k) { return t < k.Time; });
    return std::min<size_t>(std::max<size_t>(size_t(it - keys.begin()), 1), keys.size() - 1);
}

D3DXVECTOR3 lerpKeys(const std::vector<D3DXKEY_VECTOR3>& keys, double tick, D3DXVECTOR3 none)
{
    if (keys.empty())
        return none;
    if (keys.size() == 1 || tick <= keys.front().Time)
        return keys.front().Value;
    if (tick >= keys.back().Time)
        return keys.back().Value;
    size_t i = after(keys, tick);
    float f = float((tick - keys[i - 1].Time) / (keys[i].Time - keys[i - 1].Time));
    return keys[i - 1].Value + (keys[i].Value - keys[i - 1].Value) * f;
}

D3DXQUATERNION slerpKeys(const std::vector<D3DXKEY_QUATERNION>& keys, double tick)
{
    if (keys.empty())
        return D3DXQUATERNION(0, 0, 0, 1);
    if (keys.size() == 1 || tick <= keys.front().Time)
        return keys.front().Value;
    if (tick >= keys.back().Time)
        return keys.back().Value;
    size_t i = after(keys, tick);
    float f = float((tick - keys[i - 1].Time) / (keys[i].Time - keys[i - 1].Time));
    D3DXQUATERNION q;
    D3DXQuaternionSlerp(&q, &keys[i - 1].Value, &keys[i].Value, f);
    return q;
}

void mathAlone(std::vector<Channel>& channels, double tick)
{
    for (Channel& c : channels) {
        D3DXVECTOR3 s = lerpKeys(c.scale, tick, D3DXVECTOR3(1, 1, 1));
        D3DXVECTOR3 t = lerpKeys(c.translation, tick, D3DXVECTOR3(0, 0, 0));
        D3DXQUATERNION r = slerpKeys(c.rotation, tick);
        D3DXMATRIX& m = *c.output;
        D3DXMatrixRotationQuaternion(&m, &r);
        for (int k = 0; k < 3; ++k) {
            m.m[0][k] *= s.x;
            m.m[1][k] *= s.y;
            m.m[2][k] *= s.z;
        }
        m._41 = t.x;
        m._42 = t.y;
        m._43 = t.z;
    }
}

std::vector<Channel> channelsOf(ID3DXAnimationController* controller, D3DXFRAME* root)
{
    std::vector<Channel> channels;
    ID3DXAnimationSet* set = nullptr;
    ID3DXKeyframedAnimationSet* keyed = nullptr;
    controller->GetTrackAnimationSet(0, &set);
    set->QueryInterface(IID_ID3DXKeyframedAnimationSet, reinterpret_cast<void**>(&keyed));
    for (UINT a = 0; a < keyed->GetNumAnimations(); ++a) {
        const char* name = nullptr;
        keyed->GetAnimationNameByIndex(a, &name);
        D3DXFRAME* frame = D3DXFrameFind(root, name);
        if (!frame)
            continue;
        Channel c;
        c.scale.resize(keyed->GetNumScaleKeys(a));
        c.rotation.resize(keyed->GetNumRotationKeys(a));
        c.translation.resize(keyed->GetNumTranslationKeys(a));
        keyed->GetScaleKeys(a, c.scale.data());
        keyed->GetRotationKeys(a, c.rotation.data());
        keyed->GetTranslationKeys(a, c.translation.data());
        c.output = new D3DXMATRIX;
        channels.push_back(std::move(c));
    }
    keyed->Release();
    set->Release();
    return channels;
}

// Best of five runs: the cores are shared, and the best run is the one least disturbed.
template <class F>
double microsecondsPerCall(int calls, F&& call)
{
    double best = vexilbench::bestOf(5, [&] {
        for (int i = 0; i < calls; ++i)
            call(i);
    });
    return best * 1e6 / calls;
}

void measure(const char* label, const std::string& text, IDirect3DDevice9* device, int calls)
{
    Allocator allocator;
    D3DXFRAME* root = nullptr;
    ID3DXAnimationController* controller = nullptr;
    HRESULT hr = D3DXLoadMeshHierarchyFromXInMemory(text.data(), DWORD(text.size()), D3DXMESH_SYSTEMMEM, device,
                                                    &allocator, nullptr, &root, &controller);
    if (FAILED(hr) || !controller) {
        char why[64];
        std::snprintf(why, sizeof why, "could not be loaded (0x%08lx)", hr);
        vexilbench::note(label, why);
        return;
    }
    std::vector<Channel> channels = channelsOf(controller, root);
    ID3DXAnimationSet* set = nullptr;
    controller->GetTrackAnimationSet(0, &set);
    const double step = 1.0 / 60.0;
    const double ticksPerSecond = 4800.0;

    double controllerTime = microsecondsPerCall(calls, [&](int) { controller->AdvanceTime(step, nullptr); });
    double mathTime = microsecondsPerCall(calls, [&](int i) {
        mathAlone(channels, set->GetPeriodicPosition(i * step) * ticksPerSecond);
    });
    const std::string what = std::string("AdvanceTime, ") + label + " (" + std::to_string(channels.size()) + " animated frames)";
    vexilbench::report(what.c_str(), controllerTime * 1e-6, mathTime * 1e-6, "the same key math in a plain loop", 2.0);
    for (Channel& c : channels)
        delete c.output;
    set->Release();
    controller->Release();
    D3DXFrameDestroy(root, &allocator);
}

// A chain of `frames` frames, each with 30 rotation, scale and position keys over one second.
std::string generatedSkeleton(int frames)
{
    std::string text = "xof 0303txt 0032\nAnimTicksPerSecond { 4800; }\n";
    for (int f = 0; f < frames; ++f)
        text += "Frame Bone" + std::to_string(f) +
                " {\nFrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,1.0,0.0,1.0;; }\n";
    text += std::string(size_t(frames), '}') + "\nAnimationSet Generated {\n";
    char value[128];
    for (int f = 0; f < frames; ++f) {
        text += "Animation { { Bone" + std::to_string(f) + " }\n";
        const char* kinds[] = {"0", "1", "2"};
        for (const char* kind : kinds) {
            text += std::string("AnimationKey { ") + kind + "; 30;\n";
            for (int k = 0; k < 30; ++k) {
                double angle = 0.1 * k + 0.01 * f;
                if (kind[0] == '0')
                    std::snprintf(value, sizeof value, "%d;4;%f,%f,0.0,0.0;;", k * 160, std::cos(angle / 2),
                                  std::sin(angle / 2));
                else
                    std::snprintf(value, sizeof value, "%d;3;%f,1.0,1.0;;", k * 160, 1.0 + 0.01 * k);
                text += value;
                text += k == 29 ? ";\n" : ",\n";
            }
            text += "}\n";
        }
        text += "}\n";
    }
    return text + "}\n";
}

std::string readFile(const char* path)
{
    std::string text;
    FILE* file = std::fopen(path, "rb");
    if (!file)
        return text;
    char chunk[65536];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, got);
    std::fclose(file);
    return text;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string tiny = argc > 1 ? argv[1] : vexilbench::samplePath("sdk\\Tiny\\tiny.x");
    vexilbench::BenchDevice device;
    if (!device.create()) {
        vexilbench::note("d3dx_anim_bench", "no Direct3D device");
        return 1;
    }
    std::string tinyText = readFile(tiny.c_str());
    if (tinyText.empty())
        vexilbench::note("AdvanceTime, tiny.x", "skipped: " + tiny + " not found");
    else
        measure("tiny.x", tinyText, device.device, 20000);
    measure("generated 1000-frame chain", generatedSkeleton(1000), device.device, 1000);
    return 0;
}
