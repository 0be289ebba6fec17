// Effect parameter access and technique rendering against the bare ID3DXEffect calls they wrap.
#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>

#include "BenchDevice.h"
#include "BenchTimer.h"

#include <d3dx9.h>

#include <algorithm>
#include <cstdio>

namespace {

const int kCalls = 200000;
const int kDraws = 2000;
volatile float g_sink;

// Best times of both sides, measured in alternation so that load from other processes hits both.
struct Pair {
    double ours = 1e30;
    double theirs = 1e30;
};
template <class Ours, class Theirs> Pair alternate(int rounds, Ours ours, Theirs theirs) {
    Pair best;
    for (int i = 0; i < rounds; ++i) {
        best.ours = std::min(best.ours, vexilbench::bestOf(1, ours));
        best.theirs = std::min(best.theirs, vexilbench::bestOf(1, theirs));
    }
    return best;
}

void benchScalars(const Effect& effect, ID3DXEffect* bare) {
    const char* scale = nullptr;
    getParameterHandle(effect, "Scale", scale);
    Pair times = alternate(11, [&] {
        for (int i = 0; i < kCalls; ++i) setParameter(effect, scale, static_cast<float>(i));
    },
                          [&] {
        for (int i = 0; i < kCalls; ++i) bare->SetFloat(scale, static_cast<float>(i));
    });
    vexilbench::report("setParameter(float) x200k", times.ours, times.theirs, "ID3DXEffect::SetFloat", 1.1);
    times = alternate(11, [&] {
        float value = 0;
        for (int i = 0; i < kCalls; ++i) getParameter(effect, scale, value);
        g_sink = value;
    },
                          [&] {
        float value = 0;
        for (int i = 0; i < kCalls; ++i) bare->GetFloat(scale, &value);
        g_sink = value;
    });
    vexilbench::report("getParameter(float) x200k", times.ours, times.theirs, "ID3DXEffect::GetFloat", 1.1);
}

void benchMatrices(const Effect& effect, ID3DXEffect* bare) {
    const char* world = nullptr;
    getParameterHandle(effect, "World", world);
    D3DXMATRIX matrix;
    D3DXMatrixIdentity(&matrix);
    Pair times = alternate(11, [&] {
        for (int i = 0; i < kCalls; ++i) setParameter(effect, world, matrix);
    },
                          [&] {
        for (int i = 0; i < kCalls; ++i) bare->SetMatrix(world, &matrix);
    });
    vexilbench::report("setParameter(D3DXMATRIX) x200k", times.ours, times.theirs, "ID3DXEffect::SetMatrix", 1.1);
    times = alternate(11, [&] {
        for (int i = 0; i < kCalls; ++i) getParameter(effect, world, matrix);
        g_sink = matrix._11;
    },
                          [&] {
        for (int i = 0; i < kCalls; ++i) bare->GetMatrix(world, &matrix);
        g_sink = matrix._11;
    });
    vexilbench::report("getParameter(D3DXMATRIX) x200k", times.ours, times.theirs, "ID3DXEffect::GetMatrix", 1.1);
}

void benchPalette(const Effect& effect, ID3DXEffect* bare) {
    const int calls = kCalls / 10;
    const char* palette = nullptr;
    getParameterHandle(effect, "Palette", palette);
    zeb::Array<D3DXMATRIX> matrices;
    matrices.resize(26);
    for (D3DXMATRIX& matrix : matrices) D3DXMatrixIdentity(&matrix);
    D3DXMATRIX raw[26];
    for (D3DXMATRIX& matrix : raw) D3DXMatrixIdentity(&matrix);
    Pair times = alternate(11, [&] {
        for (int i = 0; i < calls; ++i) setParameter(effect, palette, matrices);
    },
                          [&] {
        for (int i = 0; i < calls; ++i) bare->SetMatrixArray(palette, raw, 26);
    });
    vexilbench::report("setParameter(Array<D3DXMATRIX> 26) x20k", times.ours, times.theirs, "ID3DXEffect::SetMatrixArray", 1.1);
    times = alternate(11, [&] {
        for (int i = 0; i < calls; ++i) getParameter(effect, palette, matrices);
        g_sink = matrices[25]._11;
    },
                          [&] {
        for (int i = 0; i < calls; ++i) bare->GetMatrixArray(palette, raw, 26);
        g_sink = raw[25]._11;
    });
    vexilbench::report("getParameter(Array<D3DXMATRIX> 26) x20k", times.ours, times.theirs, "ID3DXEffect::GetMatrixArray", 1.1);
}

void benchRender(const Effect& effect, ID3DXEffect* bare, IDirect3DDevice9* device, ID3DXMesh* mesh) {
    const Technique& technique = effect.technique(0);
    device->BeginScene();
    Pair times = alternate(7, [&] {
        for (int i = 0; i < kDraws; ++i) technique.render(mesh, 0);
    },
                          [&] {
        for (int i = 0; i < kDraws; ++i) {
            bare->SetTechnique(technique.handle());
            UINT passes = 0;
            bare->Begin(&passes, 0);
            for (UINT pass = 0; pass < passes; ++pass) {
                bare->BeginPass(pass);
                bare->CommitChanges();
                mesh->DrawSubset(0);
                bare->EndPass();
            }
            bare->End();
        }
    });
    device->EndScene();
    vexilbench::report("Technique::render x2000", times.ours, times.theirs, "Begin/BeginPass/Commit/Draw/End", 1.1);
}

}  // namespace

int main() {
    vexilbench::BenchDevice device;
    if (!device.create()) {
        vexilbench::note("effect_bench", "no Direct3D device");
        return 1;
    }
    device.device->AddRef();
    COMPtr<IDirect3DDevice9>::pointer holder(device.device);
    Effect effect;
    const std::string file = vexilbench::besideProgram("bench-effects\\bench.fxo");
    if (!effect.load(file.c_str(), holder)) {
        vexilbench::note("effect_bench", "cannot load " + file);
        return 1;
    }
    ID3DXMesh* mesh = nullptr;
    if (FAILED(D3DXCreateBox(device.device, 1.0f, 1.0f, 1.0f, &mesh, nullptr))) return 1;
    ID3DXEffect* bare = effect.effect().get();
    benchScalars(effect, bare);
    benchMatrices(effect, bare);
    benchPalette(effect, bare);
    benchRender(effect, bare, device.device, mesh);
    mesh->Release();
    return 0;
}
