// Blinn-Phong and shadow-map drawing of one mesh against the bare ID3DXEffect sequence they wrap.
#include <VexilDX9/Adapter.h>
#include <VexilDX9/LightingEffect.h>
#include <VexilDX9/ShadowMap.h>

#include "BenchTimer.h"

#include <d3dx9.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const int kDraws = 300;
const int kRounds = 41;

struct Pair {
    double ours;
    double theirs;
};
double median(std::vector<double> times) {
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    return times[times.size() / 2];
}
// Median times of both sides, measured in alternation: on a machine shared with other work the
// fastest round of either side is luck, the median is what a caller meets.
template <class Ours, class Theirs> Pair alternate(Ours ours, Theirs theirs) {
    std::vector<double> ourTimes, theirTimes;
    for (int i = 0; i < kRounds; ++i) {
        ourTimes.push_back(vexilbench::bestOf(1, ours));
        theirTimes.push_back(vexilbench::bestOf(1, theirs));
    }
    return Pair{median(ourTimes), median(theirTimes)};
}

// What BlinnPhongShading::render and ShadowMap::render stand for.
void bareRender(ID3DXEffect* effect, D3DXHANDLE technique, ID3DXMesh* mesh) {
    UINT passes = 0;
    effect->SetTechnique(technique);
    effect->Begin(&passes, 0);
    effect->BeginPass(0);
    effect->CommitChanges();
    mesh->DrawSubset(0);
    effect->EndPass();
    effect->End();
}

// Waits until the device has drawn everything queued, so that neither side leaves work for the
// other's timing.
void finish(IDirect3DDevice9* device) {
    IDirect3DQuery9* query = nullptr;
    if (FAILED(device->CreateQuery(D3DQUERYTYPE_EVENT, &query))) return;
    query->Issue(D3DISSUE_END);
    while (query->GetData(nullptr, 0, D3DGETDATA_FLUSH) == S_FALSE) {
    }
    query->Release();
}

template <class Render> void bench(const char* what, IDirect3DDevice9* device, ID3DXEffect* effect, D3DXHANDLE technique,
                                   ID3DXMesh* mesh, Render render) {
    device->BeginScene();
    Pair times = alternate([&] {
        for (int i = 0; i < kDraws; ++i) render();
        finish(device);
    },
                           [&] {
        for (int i = 0; i < kDraws; ++i) bareRender(effect, technique, mesh);
        finish(device);
    });
    device->EndScene();
    vexilbench::report(what, times.ours, times.theirs, "bare ID3DXEffect Begin..End", 1.05);
}

// The library opens its effects by relative name; they are installed beside the programs.
void workInProgramFolder() {
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    while (length > 0 && path[length - 1] != L'\\') --length;
    path[length] = 0;
    SetCurrentDirectoryW(path);
}

}  // namespace

int main() {
    workInProgramFolder();
    HWND window = CreateWindowA("STATIC", "shading_bench", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr,
                                nullptr, nullptr);
    AdapterD3D9 adapter;
    zeb::Array<zeb::String> names;
    zeb::Array<HWND> windows;
    windows.append(window);
    if (!adapter.initialize()) return 1;
    names.append(zeb::String(adapter.displayHead(0).identifier.DeviceName));
    if (!adapter.createSwapChain(names, window, windows, true, D3DDEVTYPE_HAL)) return 1;
    IDirect3DDevice9* device = adapter.device().get();
    ID3DXMesh* mesh = nullptr;
    if (FAILED(D3DXCreateSphere(device, 0.5f, 16, 8, &mesh, nullptr))) return 1;
    int result = 0;
    {
        LightingEffect lighting;
        ShadowMap shadow;
        if (lighting.initialize(adapter) && shadow.initialize(adapter.device()) &&
            shadow.allocateShadowMapResources(adapter.device(), 64)) {
            BlinnPhongShading& shading = lighting.blinnPhongShading();
            const Effect& lightEffect = lighting.effect();
            bench("BlinnPhongShading::render x300", device, lightEffect.effect().get(),
                  lightEffect.technique(shading.techniqueIndex()).handle(), mesh, [&] { shading.render(mesh, 0); });
            bench("ShadowMap::render x300", device, shadow.effect().effect().get(), shadow.effect().technique(0).handle(),
                  mesh, [&] { shadow.render(mesh, 0); });
        } else {
            vexilbench::note("shading_bench", "FAILED: the effects did not load (run beside lightingEffect.fxo and shadowMap.fxo)");
            result = 1;
        }
    }
    mesh->Release();
    adapter.cleanup();
    DestroyWindow(window);
    return result;
}
