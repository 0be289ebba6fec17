#include "ScriptedDirect3D.h"

#include <cstdint>
#include <cstring>
#include <map>

namespace vexiltest {

HRESULT ScriptedDirect3D9::CreateDevice(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD flags,
                                        D3DPRESENT_PARAMETERS* params, IDirect3DDevice9** device) {
    UINT heads = 1;
    if ((flags & D3DCREATE_ADAPTERGROUP_DEVICE) && m_scripted && adapter < m_adapters.size())
        heads = m_adapters[adapter].adaptersInGroup;
    m_calls.push_back(CreateDeviceCall{adapter, flags, std::vector<D3DPRESENT_PARAMETERS>(params, params + heads)});
    HRESULT hr;
    if (!createDeviceResults.empty()) {
        hr = createDeviceResults.front();
        createDeviceResults.pop_front();
    } else if (failingVertexMode && (flags & failingVertexMode)) {
        hr = failingVertexModeResult;
    } else {
        hr = createRealDevice(adapter, type, focusWindow, flags, heads, params, device);
    }
    if (FAILED(hr)) *device = nullptr;
    return hr;
}

HRESULT ScriptedDirect3D9::createRealDevice(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD flags, UINT heads,
                                            D3DPRESENT_PARAMETERS* params, IDirect3DDevice9** device) {
    const D3DPRESENT_PARAMETERS& first = params[0];
    const bool autoDepthWithoutFormat = first.EnableAutoDepthStencil && first.AutoDepthStencilFormat == D3DFMT_UNKNOWN;
    const bool translate = heads > 1 || !first.Windowed || autoDepthWithoutFormat || realAdapter(adapter) != adapter;
    IDirect3DDevice9* real = nullptr;
    HRESULT hr;
    if (!translate) {
        hr = m_real->CreateDevice(adapter, type, focusWindow, flags, params, &real);
    } else {
        // What Xvfb can show: one windowed swap chain on the real adapter.
        D3DPRESENT_PARAMETERS windowed = first;
        if (!first.Windowed) {
            windowed.Windowed = TRUE;
            windowed.BackBufferWidth = windowed.BackBufferHeight = windowed.FullScreen_RefreshRateInHz = 0;
        }
        if (autoDepthWithoutFormat) {
            windowed.EnableAutoDepthStencil = FALSE;
            windowed.Flags &= ~static_cast<DWORD>(D3DPRESENTFLAG_DISCARD_DEPTHSTENCIL);
        }
        hr = m_real->CreateDevice(realAdapter(adapter), type, focusWindow, flags & ~D3DCREATE_ADAPTERGROUP_DEVICE,
                                  &windowed, &real);
    }
    if (FAILED(hr)) return hr;
    m_lastDevice = ScriptedDevice9::wrap(real, this, heads);
    m_lastDevice->script = deviceScript;
    *device = real;
    return hr;
}

// ---- ScriptedDevice9 ----

namespace {
std::map<IDirect3DDevice9*, ScriptedDevice9*>& wrappedDevices() {
    static std::map<IDirect3DDevice9*, ScriptedDevice9*> devices;
    return devices;
}
}  // namespace

// The slot of a virtual method in its table (a pointer to a virtual member holds 1 + its offset).
template <class M> size_t ScriptedDevice9::slotOf(M method) {
    struct {
        uintptr_t pointer, adjust;
    } representation;
    static_assert(sizeof method == sizeof representation, "unexpected member pointer layout");
    std::memcpy(&representation, &method, sizeof representation);
    return (representation.pointer - 1) / sizeof(void*);
}

ScriptedDevice9& ScriptedDevice9::of(IDirect3DDevice9* device) { return *wrappedDevices().at(device); }

// The scripted methods: each answers what the test scripted, or forwards.
struct DeviceOverrides {
    static ULONG STDMETHODCALLTYPE Release(IDirect3DDevice9* self) {
        ScriptedDevice9* d = &ScriptedDevice9::of(self);
        const ULONG left = d->forward(&IDirect3DDevice9::Release);
        if (left == 0) {
            ScriptedDirect3D9* owner = d->m_owner;
            --owner->m_ledger->liveDevices;
            if (owner->m_lastDevice == d) owner->m_lastDevice = nullptr;
            wrappedDevices().erase(self);
            delete d;
            owner->Release();
        }
        return left;
    }
    static HRESULT STDMETHODCALLTYPE TestCooperativeLevel(IDirect3DDevice9* self) {
        ScriptedDevice9& d = ScriptedDevice9::of(self);
        if (d.script.cooperativeLevels.empty()) return d.forward(&IDirect3DDevice9::TestCooperativeLevel);
        const HRESULT hr = d.script.cooperativeLevels.front();
        d.script.cooperativeLevels.pop_front();
        return hr;
    }
    static HRESULT STDMETHODCALLTYPE GetDirect3D(IDirect3DDevice9* self, IDirect3D9** d3d) {
        ScriptedDevice9& d = ScriptedDevice9::of(self);
        d.m_owner->AddRef();
        *d3d = d.m_owner;
        return D3D_OK;
    }
    // Every head of a recorded multi-head device shows the one real swap chain.
    static HRESULT STDMETHODCALLTYPE GetSwapChain(IDirect3DDevice9* self, UINT index, IDirect3DSwapChain9** chain) {
        ScriptedDevice9& d = ScriptedDevice9::of(self);
        d.swapChainsAsked.push_back(index);
        const UINT real = index < d.m_heads ? 0u : index;
        return failOrForward(self, &DeviceScript::swapChainResult, chain, &IDirect3DDevice9::GetSwapChain, real, chain);
    }
    static HRESULT STDMETHODCALLTYPE CreateAdditionalSwapChain(IDirect3DDevice9* self, D3DPRESENT_PARAMETERS* params,
                                                               IDirect3DSwapChain9** chain) {
        return failOrForward(self, &DeviceScript::additionalSwapChainResult, chain, &IDirect3DDevice9::CreateAdditionalSwapChain,
                             params, chain);
    }
    // Only a single windowed head can be reset for real on Xvfb.
    static HRESULT STDMETHODCALLTYPE Reset(IDirect3DDevice9* self, D3DPRESENT_PARAMETERS* params) {
        ScriptedDevice9& d = ScriptedDevice9::of(self);
        ++d.resetCalls;
        if (FAILED(d.script.resetResult)) return d.script.resetResult;
        if (d.m_heads > 1 || !params[0].Windowed) return D3D_OK;
        return d.forward(&IDirect3DDevice9::Reset, params);
    }
    static HRESULT STDMETHODCALLTYPE GetDepthStencilSurface(IDirect3DDevice9* self, IDirect3DSurface9** surface) {
        return failOrForward(self, &DeviceScript::depthStencilSurfaceResult, surface, &IDirect3DDevice9::GetDepthStencilSurface,
                             surface);
    }
    static HRESULT STDMETHODCALLTYPE CreateTexture(IDirect3DDevice9* self, UINT width, UINT height, UINT levels,
                                                   DWORD usage, D3DFORMAT format, D3DPOOL pool,
                                                   IDirect3DTexture9** texture, HANDLE* shared) {
        return failOrForward(self, &DeviceScript::createTextureResult, texture, &IDirect3DDevice9::CreateTexture, width, height,
                             levels, usage, format, pool, texture, shared);
    }
    // Scripted failures apply to creating calls only, not to support probes.
    static HRESULT STDMETHODCALLTYPE CreateQuery(IDirect3DDevice9* self, D3DQUERYTYPE type, IDirect3DQuery9** query) {
        return failOrForward(self, &DeviceScript::createQueryResult, query, &IDirect3DDevice9::CreateQuery, type, query);
    }

    // The scripted failure, with a null output, or the real call (calls without an output are probes).
    template <class T, class M, class... A>
    static HRESULT failOrForward(IDirect3DDevice9* self, HRESULT DeviceScript::*result, T** out, M method, A... args) {
        ScriptedDevice9& d = ScriptedDevice9::of(self);
        if (!out || SUCCEEDED(d.script.*result)) return d.forward(method, args...);
        *out = nullptr;
        return d.script.*result;
    }
};

ScriptedDevice9::ScriptedDevice9(IDirect3DDevice9* real, ScriptedDirect3D9* owner, UINT heads)
    : device(real), m_owner(owner), m_heads(heads), m_realTable(*reinterpret_cast<void***>(real)) {
    // wined3d's devices are IDirect3DDevice9Ex: its table is the longer one.
    m_table.assign(m_realTable, m_realTable + slotOf(&IDirect3DDevice9Ex::GetDisplayModeEx) + 1);
#define VEXIL_SCRIPT(method) m_table[slotOf(&IDirect3DDevice9::method)] = reinterpret_cast<void*>(&DeviceOverrides::method)
    VEXIL_SCRIPT(Release), VEXIL_SCRIPT(TestCooperativeLevel), VEXIL_SCRIPT(GetDirect3D), VEXIL_SCRIPT(GetSwapChain);
    VEXIL_SCRIPT(CreateAdditionalSwapChain), VEXIL_SCRIPT(Reset);
    VEXIL_SCRIPT(GetDepthStencilSurface), VEXIL_SCRIPT(CreateQuery), VEXIL_SCRIPT(CreateTexture);
#undef VEXIL_SCRIPT
}

ScriptedDevice9* ScriptedDevice9::wrap(IDirect3DDevice9* real, ScriptedDirect3D9* owner, UINT heads) {
    ScriptedDevice9* d = new ScriptedDevice9(real, owner, heads);
    *reinterpret_cast<void***>(real) = d->m_table.data();
    wrappedDevices()[real] = d;
    owner->AddRef();
    ++owner->m_ledger->liveDevices;
    return d;
}

}  // namespace vexiltest
