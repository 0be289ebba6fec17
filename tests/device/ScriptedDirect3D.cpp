#include "ScriptedDirect3D.h"

#include <algorithm>
#include <cstring>

namespace vexiltest {

bool ComLedger::allReleasedToZero() const {
    return liveDirect3D == 0 && liveDevices == 0 &&
           std::all_of(finalReleases.begin(), finalReleases.end(), [](ULONG n) { return n == 0; });
}

// ---- ScriptedDirect3D9 ----

ScriptedDirect3D9::ScriptedDirect3D9(IDirect3D9* real, std::shared_ptr<ComLedger> ledger)
    : m_real(real), m_ledger(std::move(ledger)) {
    ++m_ledger->liveDirect3D;
}

ScriptedDirect3D9::~ScriptedDirect3D9() = default;

void ScriptedDirect3D9::setAdapters(const std::vector<ScriptedAdapter>& adapters) {
    m_scripted = true;
    m_adapters = adapters;
}

HRESULT ScriptedDirect3D9::QueryInterface(REFIID riid, void** object) {
    if (riid == IID_IUnknown || riid == __uuidof(IDirect3D9)) {
        AddRef();
        *object = this;
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG ScriptedDirect3D9::AddRef() { return ++m_references; }

ULONG ScriptedDirect3D9::Release() {
    const ULONG left = --m_references;
    if (left == 0) {
        m_ledger->finalReleases.push_back(m_real->Release());
        --m_ledger->liveDirect3D;
        delete this;
    }
    return left;
}

HRESULT ScriptedDirect3D9::RegisterSoftwareDevice(void* init) { return m_real->RegisterSoftwareDevice(init); }

UINT ScriptedDirect3D9::GetAdapterCount() {
    return m_scripted ? static_cast<UINT>(m_adapters.size()) : m_real->GetAdapterCount();
}

HRESULT ScriptedDirect3D9::GetAdapterIdentifier(UINT adapter, DWORD flags, D3DADAPTER_IDENTIFIER9* identifier) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    if (m_scripted && FAILED(m_adapters[adapter].identifierResult)) return m_adapters[adapter].identifierResult;
    HRESULT hr = m_real->GetAdapterIdentifier(realAdapter(adapter), flags, identifier);
    if (SUCCEEDED(hr) && m_scripted) {
        std::memset(identifier->DeviceName, 0, sizeof identifier->DeviceName);
        const std::string& name = m_adapters[adapter].deviceName;
        std::memcpy(identifier->DeviceName, name.data(), std::min(name.size(), sizeof identifier->DeviceName));
    }
    return hr;
}

const std::vector<D3DDISPLAYMODE>* ScriptedDirect3D9::scriptedModes(UINT adapter) const {
    return m_scripted && adapter < m_adapters.size() && !m_adapters[adapter].modes.empty() ? &m_adapters[adapter].modes
                                                                                         : nullptr;
}

UINT ScriptedDirect3D9::GetAdapterModeCount(UINT adapter, D3DFORMAT format) {
    if (const std::vector<D3DDISPLAYMODE>* modes = scriptedModes(adapter)) return static_cast<UINT>(modes->size());
    return knownAdapter(adapter) ? m_real->GetAdapterModeCount(realAdapter(adapter), format) : 0;
}

HRESULT ScriptedDirect3D9::EnumAdapterModes(UINT adapter, D3DFORMAT format, UINT mode, D3DDISPLAYMODE* out) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    const std::vector<D3DDISPLAYMODE>* modes = scriptedModes(adapter);
    if (!modes) return m_real->EnumAdapterModes(realAdapter(adapter), format, mode, out);
    if (mode >= modes->size()) return D3DERR_INVALIDCALL;
    *out = (*modes)[mode];
    return D3D_OK;
}

HRESULT ScriptedDirect3D9::GetAdapterDisplayMode(UINT adapter, D3DDISPLAYMODE* mode) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    if (m_scripted && FAILED(m_adapters[adapter].displayModeResult)) return m_adapters[adapter].displayModeResult;
    const HRESULT hr = m_real->GetAdapterDisplayMode(realAdapter(adapter), mode);
    if (SUCCEEDED(hr) && m_scripted && m_adapters[adapter].displayFormat != D3DFMT_UNKNOWN)
        mode->Format = m_adapters[adapter].displayFormat;
    return hr;
}

HRESULT ScriptedDirect3D9::CheckDeviceType(UINT adapter, D3DDEVTYPE type, D3DFORMAT displayFormat,
                                           D3DFORMAT backBufferFormat, WINBOOL windowed) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    return m_real->CheckDeviceType(realAdapter(adapter), type, displayFormat, backBufferFormat, windowed);
}

HRESULT ScriptedDirect3D9::CheckDeviceFormat(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat, DWORD usage,
                                             D3DRESOURCETYPE resourceType, D3DFORMAT checkFormat) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    if (refusedFormat != D3DFMT_UNKNOWN && checkFormat == refusedFormat) return D3DERR_NOTAVAILABLE;
    if ((usage & D3DUSAGE_DEPTHSTENCIL) && !depthFormatAllowed(checkFormat)) return D3DERR_NOTAVAILABLE;
    return m_real->CheckDeviceFormat(realAdapter(adapter), type, adapterFormat, usage, resourceType, checkFormat);
}

HRESULT ScriptedDirect3D9::CheckDeviceMultiSampleType(UINT adapter, D3DDEVTYPE type, D3DFORMAT surfaceFormat,
                                                      WINBOOL windowed, D3DMULTISAMPLE_TYPE multiSampleType,
                                                      DWORD* qualityLevels) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    if (FAILED(multiSampleResult)) return multiSampleResult;
    if (multiSampleLevels && qualityLevels) {
        *qualityLevels = multiSampleLevels;
        return D3D_OK;
    }
    return m_real->CheckDeviceMultiSampleType(realAdapter(adapter), type, surfaceFormat, windowed, multiSampleType,
                                              qualityLevels);
}

bool ScriptedDirect3D9::depthFormatAllowed(D3DFORMAT format) {
    if (rejectedDepthChecks != 0) {
        if (rejectedDepthChecks > 0) --rejectedDepthChecks;
        return false;
    }
    return acceptedDepthFormat == D3DFMT_UNKNOWN || format == acceptedDepthFormat;
}

HRESULT ScriptedDirect3D9::CheckDepthStencilMatch(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat,
                                                  D3DFORMAT renderTargetFormat, D3DFORMAT depthStencilFormat) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    if (!depthFormatAllowed(depthStencilFormat)) return D3DERR_NOTAVAILABLE;
    return m_real->CheckDepthStencilMatch(realAdapter(adapter), type, adapterFormat, renderTargetFormat,
                                          depthStencilFormat);
}

HRESULT ScriptedDirect3D9::CheckDeviceFormatConversion(UINT adapter, D3DDEVTYPE type, D3DFORMAT sourceFormat,
                                                       D3DFORMAT targetFormat) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    return m_real->CheckDeviceFormatConversion(realAdapter(adapter), type, sourceFormat, targetFormat);
}

HRESULT ScriptedDirect3D9::GetDeviceCaps(UINT adapter, D3DDEVTYPE type, D3DCAPS9* caps) {
    if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
    if (m_scripted && FAILED(m_adapters[adapter].capsResult)) return m_adapters[adapter].capsResult;
    HRESULT hr = m_real->GetDeviceCaps(realAdapter(adapter), type, caps);
    if (SUCCEEDED(hr) && m_scripted) {
        const ScriptedAdapter& a = m_adapters[adapter];
        caps->AdapterOrdinal = adapter;
        caps->MasterAdapterOrdinal = a.masterOrdinal;
        caps->AdapterOrdinalInGroup = a.ordinalInGroup;
        caps->NumberOfAdaptersInGroup = a.ordinalInGroup == 0 ? a.adaptersInGroup : 0;
        if (a.vertexShaderVersion) caps->VertexShaderVersion = a.vertexShaderVersion;
        if (a.pixelShaderVersion) caps->PixelShaderVersion = a.pixelShaderVersion;
    }
    return hr;
}

HMONITOR ScriptedDirect3D9::GetAdapterMonitor(UINT adapter) {
    if (m_scripted && adapter < m_adapters.size() && !m_adapters[adapter].monitor) return nullptr;
    return knownAdapter(adapter) ? m_real->GetAdapterMonitor(realAdapter(adapter)) : nullptr;
}

HRESULT ScriptedDirect3D9::CreateDevice(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD flags,
                                        D3DPRESENT_PARAMETERS* params, IDirect3DDevice9** device) {
    UINT heads = 1;
    if ((flags & D3DCREATE_ADAPTERGROUP_DEVICE) && m_scripted && adapter < m_adapters.size())
        heads = m_adapters[adapter].adaptersInGroup;
    CreateDeviceCall call{adapter, type, focusWindow, flags, std::vector<D3DPRESENT_PARAMETERS>(params, params + heads),
                          D3D_OK};
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
    call.result = hr;
    m_calls.push_back(call);
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
            windowed.BackBufferWidth = 0;
            windowed.BackBufferHeight = 0;
            windowed.FullScreen_RefreshRateInHz = 0;
        }
        if (autoDepthWithoutFormat) {
            windowed.EnableAutoDepthStencil = FALSE;
            windowed.Flags &= ~static_cast<DWORD>(D3DPRESENTFLAG_DISCARD_DEPTHSTENCIL);
        }
        hr = m_real->CreateDevice(realAdapter(adapter), type, focusWindow, flags & ~D3DCREATE_ADAPTERGROUP_DEVICE,
                                  &windowed, &real);
    }
    if (FAILED(hr)) return hr;
    ScriptedDevice9* wrapped = new ScriptedDevice9(real, this, heads);
    wrapped->script = deviceScript;
    m_lastDevice = wrapped;
    *device = wrapped;
    return hr;
}

// ---- ScriptedDevice9 ----

ScriptedDevice9::ScriptedDevice9(IDirect3DDevice9* real, ScriptedDirect3D9* owner, UINT heads)
    : m_real(real), m_owner(owner), m_heads(heads) {
    m_owner->AddRef();
    ++m_owner->m_ledger->liveDevices;
    ++m_owner->m_ledger->devicesCreated;
}

ScriptedDevice9::~ScriptedDevice9() = default;

HRESULT ScriptedDevice9::QueryInterface(REFIID riid, void** object) {
    if (riid == IID_IUnknown || riid == __uuidof(IDirect3DDevice9)) {
        AddRef();
        *object = this;
        return S_OK;
    }
    return m_real->QueryInterface(riid, object);
}

ULONG ScriptedDevice9::AddRef() { return ++m_references; }

ULONG ScriptedDevice9::Release() {
    const ULONG left = --m_references;
    if (left == 0) {
        ScriptedDirect3D9* owner = m_owner;
        owner->m_ledger->finalReleases.push_back(m_real->Release());
        --owner->m_ledger->liveDevices;
        if (owner->m_lastDevice == this) owner->m_lastDevice = nullptr;
        delete this;
        owner->Release();
    }
    return left;
}

HRESULT ScriptedDevice9::TestCooperativeLevel() {
    if (script.cooperativeLevels.empty()) return m_real->TestCooperativeLevel();
    HRESULT hr = script.cooperativeLevels.front();
    script.cooperativeLevels.pop_front();
    return hr;
}

HRESULT ScriptedDevice9::GetDirect3D(IDirect3D9** d3d) {
    m_owner->AddRef();
    *d3d = m_owner;
    return D3D_OK;
}

HRESULT ScriptedDevice9::GetSwapChain(UINT index, IDirect3DSwapChain9** swapChain) {
    if (FAILED(script.swapChainResult)) {
        *swapChain = nullptr;
        return script.swapChainResult;
    }
    // Every head of a recorded multi-head device shows the one real swap chain.
    return m_real->GetSwapChain(index < m_heads ? 0 : index, swapChain);
}

UINT ScriptedDevice9::GetNumberOfSwapChains() { return std::max(m_heads, m_real->GetNumberOfSwapChains()); }

HRESULT ScriptedDevice9::CreateAdditionalSwapChain(D3DPRESENT_PARAMETERS* params, IDirect3DSwapChain9** swapChain) {
    if (FAILED(script.additionalSwapChainResult)) {
        *swapChain = nullptr;
        return script.additionalSwapChainResult;
    }
    return m_real->CreateAdditionalSwapChain(params, swapChain);
}

HRESULT ScriptedDevice9::Reset(D3DPRESENT_PARAMETERS* params) {
    ++resetCalls;
    if (FAILED(script.resetResult)) return script.resetResult;
    // Only a single windowed head can be reset for real on Xvfb.
    if (m_heads > 1 || !params[0].Windowed) return D3D_OK;
    return m_real->Reset(params);
}

HRESULT ScriptedDevice9::GetDepthStencilSurface(IDirect3DSurface9** surface) {
    if (FAILED(script.depthStencilSurfaceResult)) {
        *surface = nullptr;
        return script.depthStencilSurfaceResult;
    }
    return m_real->GetDepthStencilSurface(surface);
}

HRESULT ScriptedDevice9::CreateDepthStencilSurface(UINT width, UINT height, D3DFORMAT format,
                                                   D3DMULTISAMPLE_TYPE multiSample, DWORD quality, WINBOOL discard,
                                                   IDirect3DSurface9** surface, HANDLE* shared) {
    if (FAILED(script.createDepthStencilResult)) {
        *surface = nullptr;
        return script.createDepthStencilResult;
    }
    return m_real->CreateDepthStencilSurface(width, height, format, multiSample, quality, discard, surface, shared);
}

HRESULT ScriptedDevice9::CreateTexture(UINT width, UINT height, UINT levels, DWORD usage, D3DFORMAT format,
                                       D3DPOOL pool, IDirect3DTexture9** texture, HANDLE* shared) {
    if (FAILED(script.createTextureResult)) {
        *texture = nullptr;
        return script.createTextureResult;
    }
    return m_real->CreateTexture(width, height, levels, usage, format, pool, texture, shared);
}

HRESULT ScriptedDevice9::CreateQuery(D3DQUERYTYPE type, IDirect3DQuery9** query) {
    if (query && FAILED(script.createQueryResult)) {
        *query = nullptr;
        return script.createQueryResult;
    }
    return m_real->CreateQuery(type, query);
}

}  // namespace vexiltest
