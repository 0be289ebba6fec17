#pragma once
// A scripted decorator around the real IDirect3D9 of wined3d, whose devices are the real ones with
// a few methods scripted. Everything else goes to wined3d; a test scripts only what Wine cannot
// produce: several adapters in chosen groups, failing calls, lost devices. Full-screen and
// multi-head creation requests are recorded as made and brought up on the real adapter as a
// windowed device.
#include <d3d9.h>
#include <windows.h>

#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace vexiltest {

// What became of the real objects behind the decorators, read after they are gone.
struct ComLedger {
    int liveDirect3D = 0;
    int liveDevices = 0;
    // Real objects whose final Release through the decorator left references behind.
    int heldAfterRelease = 0;
    bool allReleasedToZero() const { return liveDirect3D == 0 && liveDevices == 0 && heldAfterRelease == 0; }
};

struct ScriptedAdapter {
    std::string deviceName;
    UINT masterOrdinal = 0;
    UINT ordinalInGroup = 0;
    UINT adaptersInGroup = 1;
    HRESULT identifierResult = D3D_OK;
    HRESULT capsResult = D3D_OK;
    HRESULT displayModeResult = D3D_OK;
    DWORD vertexShaderVersion = 0;  // 0: the real adapter's
    DWORD pixelShaderVersion = 0;
    bool monitor = true;
    D3DFORMAT displayFormat = D3DFMT_UNKNOWN;  // of the current mode; UNKNOWN: the real one
    std::vector<D3DDISPLAYMODE> modes;          // empty: the real adapter's
    bool noModes = false;                       // none at all
};

// Results for the calls of devices created through the decorator (D3D_OK: forward).
struct DeviceScript {
    std::deque<HRESULT> cooperativeLevels;  // consumed one per TestCooperativeLevel call
    HRESULT resetResult = D3D_OK;
    HRESULT swapChainResult = D3D_OK;
    HRESULT depthStencilSurfaceResult = D3D_OK;
    HRESULT createQueryResult = D3D_OK;  // for creating calls only, not support probes
    HRESULT additionalSwapChainResult = D3D_OK;
    HRESULT createTextureResult = D3D_OK;
};

struct CreateDeviceCall {
    UINT adapter;
    DWORD flags;
    std::vector<D3DPRESENT_PARAMETERS> params;  // as the caller passed them
};

class ScriptedDevice9;

class ScriptedDirect3D9 final : public IDirect3D9 {
public:
    // Adopts real; the new decorator holds one reference for its creator.
    ScriptedDirect3D9(IDirect3D9* real, std::shared_ptr<ComLedger> ledger) : m_real(real), m_ledger(std::move(ledger)) {
        ++m_ledger->liveDirect3D;
    }

    // Replaces the real adapter list by these, each backed by real adapter 0.
    void setAdapters(const std::vector<ScriptedAdapter>& adapters) {
        m_scripted = true;
        m_adapters = adapters;
    }
    ScriptedAdapter& adapter(UINT ordinal) { return m_adapters[ordinal]; }

    // Results handed out before forwarding, one per CreateDevice call.
    std::deque<HRESULT> createDeviceResults;
    // A result for every CreateDevice call with this vertex-processing mode (0: none).
    DWORD failingVertexMode = 0;
    HRESULT failingVertexModeResult = D3DERR_NOTAVAILABLE;
    HRESULT multiSampleResult = D3D_OK;
    DWORD multiSampleLevels = 0;  // quality levels reported with success (0: the real adapter's)
    // A format that every CheckDeviceFormat refuses (D3DFMT_UNKNOWN: none).
    D3DFORMAT refusedFormat = D3DFMT_UNKNOWN;
    // How many depth-stencil checks (CheckDepthStencilMatch, or CheckDeviceFormat for depth use) to
    // refuse from now on (-1: all); after that, accept only acceptedDepthFormat (D3DFMT_UNKNOWN:
    // whatever the real adapter accepts).
    int rejectedDepthChecks = 0;
    D3DFORMAT acceptedDepthFormat = D3DFMT_UNKNOWN;
    DeviceScript deviceScript;

    const std::vector<CreateDeviceCall>& createDeviceCalls() const { return m_calls; }
    ScriptedDevice9* lastDevice() const { return m_lastDevice; }
    IDirect3D9* real() const { return m_real; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        const bool known = riid == IID_IUnknown || riid == __uuidof(IDirect3D9);
        if (known) AddRef();
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            m_ledger->heldAfterRelease += m_real->Release() != 0;
            --m_ledger->liveDirect3D;
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE RegisterSoftwareDevice(void* init) override { return m_real->RegisterSoftwareDevice(init); }
    UINT STDMETHODCALLTYPE GetAdapterCount() override {
        return m_scripted ? static_cast<UINT>(m_adapters.size()) : m_real->GetAdapterCount();
    }
    HRESULT STDMETHODCALLTYPE GetAdapterIdentifier(UINT adapter, DWORD flags, D3DADAPTER_IDENTIFIER9* identifier) override {
        HRESULT hr = scriptedResult(adapter, &ScriptedAdapter::identifierResult);
        if (SUCCEEDED(hr)) hr = m_real->GetAdapterIdentifier(realAdapter(adapter), flags, identifier);
        if (SUCCEEDED(hr) && m_scripted)
            std::snprintf(identifier->DeviceName, sizeof identifier->DeviceName, "%s", m_adapters[adapter].deviceName.c_str());
        return hr;
    }
    UINT STDMETHODCALLTYPE GetAdapterModeCount(UINT adapter, D3DFORMAT format) override {
        if (m_scripted && adapter < m_adapters.size() && m_adapters[adapter].noModes) return 0;
        if (const std::vector<D3DDISPLAYMODE>* modes = scriptedModes(adapter)) return static_cast<UINT>(modes->size());
        return knownAdapter(adapter) ? m_real->GetAdapterModeCount(realAdapter(adapter), format) : 0;
    }
    HRESULT STDMETHODCALLTYPE EnumAdapterModes(UINT adapter, D3DFORMAT format, UINT mode, D3DDISPLAYMODE* out) override {
        if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
        const std::vector<D3DDISPLAYMODE>* modes = scriptedModes(adapter);
        if (!modes) return m_real->EnumAdapterModes(realAdapter(adapter), format, mode, out);
        if (mode >= modes->size()) return D3DERR_INVALIDCALL;
        *out = (*modes)[mode];
        return D3D_OK;
    }
    HRESULT STDMETHODCALLTYPE GetAdapterDisplayMode(UINT adapter, D3DDISPLAYMODE* mode) override {
        HRESULT hr = scriptedResult(adapter, &ScriptedAdapter::displayModeResult);
        if (SUCCEEDED(hr)) hr = m_real->GetAdapterDisplayMode(realAdapter(adapter), mode);
        if (SUCCEEDED(hr) && m_scripted && m_adapters[adapter].displayFormat != D3DFMT_UNKNOWN)
            mode->Format = m_adapters[adapter].displayFormat;
        return hr;
    }
    // Not used by the library: answered by the real adapter behind.
    HRESULT STDMETHODCALLTYPE CheckDeviceType(UINT adapter, D3DDEVTYPE type, D3DFORMAT displayFormat,
                                              D3DFORMAT backBufferFormat, WINBOOL windowed) override {
        return m_real->CheckDeviceType(realAdapter(adapter), type, displayFormat, backBufferFormat, windowed);
    }
    HRESULT STDMETHODCALLTYPE CheckDeviceFormat(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat, DWORD usage,
                                                D3DRESOURCETYPE resourceType, D3DFORMAT checkFormat) override {
        if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
        if ((usage & D3DUSAGE_DEPTHSTENCIL) && !depthFormatAllowed(checkFormat)) return D3DERR_NOTAVAILABLE;
        if (refusedFormat != D3DFMT_UNKNOWN && checkFormat == refusedFormat) return D3DERR_NOTAVAILABLE;
        return m_real->CheckDeviceFormat(realAdapter(adapter), type, adapterFormat, usage, resourceType, checkFormat);
    }
    HRESULT STDMETHODCALLTYPE CheckDeviceMultiSampleType(UINT adapter, D3DDEVTYPE type, D3DFORMAT surfaceFormat,
                                                         WINBOOL windowed, D3DMULTISAMPLE_TYPE multiSampleType,
                                                         DWORD* qualityLevels) override {
        if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
        if (FAILED(multiSampleResult)) return multiSampleResult;
        if (!multiSampleLevels || !qualityLevels)
            return m_real->CheckDeviceMultiSampleType(realAdapter(adapter), type, surfaceFormat, windowed, multiSampleType,
                                                      qualityLevels);
        *qualityLevels = multiSampleLevels;
        return D3D_OK;
    }
    HRESULT STDMETHODCALLTYPE CheckDepthStencilMatch(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat,
                                                     D3DFORMAT renderTargetFormat, D3DFORMAT depthStencilFormat) override {
        if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
        if (!depthFormatAllowed(depthStencilFormat)) return D3DERR_NOTAVAILABLE;
        return m_real->CheckDepthStencilMatch(realAdapter(adapter), type, adapterFormat, renderTargetFormat, depthStencilFormat);
    }
    HRESULT STDMETHODCALLTYPE CheckDeviceFormatConversion(UINT adapter, D3DDEVTYPE type, D3DFORMAT sourceFormat,
                                                          D3DFORMAT targetFormat) override {
        return m_real->CheckDeviceFormatConversion(realAdapter(adapter), type, sourceFormat, targetFormat);
    }
    HRESULT STDMETHODCALLTYPE GetDeviceCaps(UINT adapter, D3DDEVTYPE type, D3DCAPS9* caps) override {
        HRESULT hr = scriptedResult(adapter, &ScriptedAdapter::capsResult);
        if (SUCCEEDED(hr)) hr = m_real->GetDeviceCaps(realAdapter(adapter), type, caps);
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
    HMONITOR STDMETHODCALLTYPE GetAdapterMonitor(UINT adapter) override {
        if (!knownAdapter(adapter) || (m_scripted && !m_adapters[adapter].monitor)) return nullptr;
        return m_real->GetAdapterMonitor(realAdapter(adapter));
    }
    HRESULT STDMETHODCALLTYPE CreateDevice(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD flags,
                                           D3DPRESENT_PARAMETERS* params, IDirect3DDevice9** device) override;

private:
    friend class ScriptedDevice9;
    friend struct DeviceOverrides;
    ~ScriptedDirect3D9() = default;
    // The real adapter that stands behind a scripted one.
    UINT realAdapter(UINT adapter) const { return m_scripted ? 0 : adapter; }
    bool knownAdapter(UINT adapter) const { return !m_scripted || adapter < m_adapters.size(); }
    // D3DERR_INVALIDCALL past the list, else the result scripted for that query (D3D_OK unscripted).
    HRESULT scriptedResult(UINT adapter, HRESULT ScriptedAdapter::*result) const {
        if (!knownAdapter(adapter)) return D3DERR_INVALIDCALL;
        return m_scripted ? m_adapters[adapter].*result : D3D_OK;
    }
    const std::vector<D3DDISPLAYMODE>* scriptedModes(UINT adapter) const {
        const bool scripted = m_scripted && adapter < m_adapters.size() && !m_adapters[adapter].modes.empty();
        return scripted ? &m_adapters[adapter].modes : nullptr;
    }
    // Depth-stencil checks (both kinds) follow rejectedDepthChecks and acceptedDepthFormat.
    bool depthFormatAllowed(D3DFORMAT format) {
        if (rejectedDepthChecks == 0) return acceptedDepthFormat == D3DFMT_UNKNOWN || format == acceptedDepthFormat;
        if (rejectedDepthChecks > 0) --rejectedDepthChecks;
        return false;
    }
    HRESULT createRealDevice(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD flags, UINT heads,
                             D3DPRESENT_PARAMETERS* params, IDirect3DDevice9** device);

    IDirect3D9* m_real;
    ULONG m_references = 1;
    std::shared_ptr<ComLedger> m_ledger;
    bool m_scripted = false;
    std::vector<ScriptedAdapter> m_adapters;
    std::vector<CreateDeviceCall> m_calls;
    ScriptedDevice9* m_lastDevice = nullptr;
};

// A real device whose object is given a copy of its method table with the scripted methods put
// in; everything else goes straight to wined3d.
class ScriptedDevice9 {
public:
    static ScriptedDevice9* wrap(IDirect3DDevice9* real, ScriptedDirect3D9* owner, UINT heads);
    // The state behind a wrapped device.
    static ScriptedDevice9& of(IDirect3DDevice9* device);

    IDirect3DDevice9* const device;
    DeviceScript script;
    unsigned resetCalls = 0;
    std::vector<UINT> swapChainsAsked;  // the index of every GetSwapChain call

    // Calls the real method of the device's own table.
    template <class R, class... P, class... A> R forward(R (STDMETHODCALLTYPE IDirect3DDevice9::*method)(P...), A... args) {
        typedef R(STDMETHODCALLTYPE * Real)(IDirect3DDevice9*, P...);
        return reinterpret_cast<Real>(m_realTable[slotOf(method)])(device, args...);
    }

private:
    friend struct DeviceOverrides;
    ScriptedDevice9(IDirect3DDevice9* real, ScriptedDirect3D9* owner, UINT heads);
    template <class M> static size_t slotOf(M method);

    ScriptedDirect3D9* m_owner;
    UINT m_heads;
    void** m_realTable;
    std::vector<void*> m_table;
};

}  // namespace vexiltest
