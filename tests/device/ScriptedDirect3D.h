#pragma once
// Scripted decorators around the real IDirect3D9 and IDirect3DDevice9 of wined3d. Everything is
// forwarded to the real objects; a test scripts only what Wine cannot produce: several adapters
// in chosen groups, failing calls, lost devices. Full-screen and multi-head creation requests are
// recorded as made and brought up on the real adapter as a windowed device.
#include <d3d9.h>
#include <windows.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace vexiltest {

// What became of the real objects behind the decorators, read after they are gone.
struct ComLedger {
    int liveDirect3D = 0;
    int liveDevices = 0;
    int devicesCreated = 0;
    // Values returned by the final Release of each real object.
    std::vector<ULONG> finalReleases;
    bool allReleasedToZero() const;
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
};

// Results for the calls of devices created through the decorator (D3D_OK: forward).
struct DeviceScript {
    std::deque<HRESULT> cooperativeLevels;  // consumed one per TestCooperativeLevel call
    HRESULT resetResult = D3D_OK;
    HRESULT swapChainResult = D3D_OK;
    HRESULT depthStencilSurfaceResult = D3D_OK;
    HRESULT createDepthStencilResult = D3D_OK;
    HRESULT createQueryResult = D3D_OK;  // for creating calls only, not support probes
    HRESULT createTextureResult = D3D_OK;
    HRESULT additionalSwapChainResult = D3D_OK;
};

struct CreateDeviceCall {
    UINT adapter;
    D3DDEVTYPE type;
    HWND focusWindow;
    DWORD flags;
    std::vector<D3DPRESENT_PARAMETERS> params;  // as the caller passed them
    HRESULT result;
};

class ScriptedDevice9;

class ScriptedDirect3D9 final : public IDirect3D9 {
public:
    // Adopts real; the new decorator holds one reference for its creator.
    ScriptedDirect3D9(IDirect3D9* real, std::shared_ptr<ComLedger> ledger);

    // Replaces the real adapter list by these, each backed by real adapter 0.
    void setAdapters(const std::vector<ScriptedAdapter>& adapters);
    ScriptedAdapter& adapter(UINT ordinal) { return m_adapters[ordinal]; }

    // Results handed out before forwarding, one per CreateDevice call.
    std::deque<HRESULT> createDeviceResults;
    // A result for every CreateDevice call with this vertex-processing mode (0: none).
    DWORD failingVertexMode = 0;
    HRESULT failingVertexModeResult = D3DERR_NOTAVAILABLE;
    HRESULT multiSampleResult = D3D_OK;
    // A format that every CheckDeviceFormat refuses (D3DFMT_UNKNOWN: none).
    D3DFORMAT refusedFormat = D3DFMT_UNKNOWN;
    DWORD multiSampleLevels = 0;  // quality levels reported with success (0: the real adapter's)
    // How many depth-stencil checks (CheckDepthStencilMatch, or CheckDeviceFormat for depth use) to refuse from now on (-1: all); after that, accept only
    // acceptedDepthFormat (D3DFMT_UNKNOWN: whatever the real adapter accepts).
    int rejectedDepthChecks = 0;
    D3DFORMAT acceptedDepthFormat = D3DFMT_UNKNOWN;
    DeviceScript deviceScript;

    const std::vector<CreateDeviceCall>& createDeviceCalls() const { return m_calls; }
    ScriptedDevice9* lastDevice() const { return m_lastDevice; }
    IDirect3D9* real() const { return m_real; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE RegisterSoftwareDevice(void* init) override;
    UINT STDMETHODCALLTYPE GetAdapterCount() override;
    HRESULT STDMETHODCALLTYPE GetAdapterIdentifier(UINT adapter, DWORD flags, D3DADAPTER_IDENTIFIER9* identifier) override;
    UINT STDMETHODCALLTYPE GetAdapterModeCount(UINT adapter, D3DFORMAT format) override;
    HRESULT STDMETHODCALLTYPE EnumAdapterModes(UINT adapter, D3DFORMAT format, UINT mode, D3DDISPLAYMODE* out) override;
    HRESULT STDMETHODCALLTYPE GetAdapterDisplayMode(UINT adapter, D3DDISPLAYMODE* mode) override;
    HRESULT STDMETHODCALLTYPE CheckDeviceType(UINT adapter, D3DDEVTYPE type, D3DFORMAT displayFormat,
                                              D3DFORMAT backBufferFormat, WINBOOL windowed) override;
    HRESULT STDMETHODCALLTYPE CheckDeviceFormat(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat, DWORD usage,
                                                D3DRESOURCETYPE resourceType, D3DFORMAT checkFormat) override;
    HRESULT STDMETHODCALLTYPE CheckDeviceMultiSampleType(UINT adapter, D3DDEVTYPE type, D3DFORMAT surfaceFormat,
                                                         WINBOOL windowed, D3DMULTISAMPLE_TYPE multiSampleType,
                                                         DWORD* qualityLevels) override;
    HRESULT STDMETHODCALLTYPE CheckDepthStencilMatch(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat,
                                                     D3DFORMAT renderTargetFormat, D3DFORMAT depthStencilFormat) override;
    HRESULT STDMETHODCALLTYPE CheckDeviceFormatConversion(UINT adapter, D3DDEVTYPE type, D3DFORMAT sourceFormat,
                                                          D3DFORMAT targetFormat) override;
    HRESULT STDMETHODCALLTYPE GetDeviceCaps(UINT adapter, D3DDEVTYPE type, D3DCAPS9* caps) override;
    HMONITOR STDMETHODCALLTYPE GetAdapterMonitor(UINT adapter) override;
    HRESULT STDMETHODCALLTYPE CreateDevice(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD flags,
                                           D3DPRESENT_PARAMETERS* params, IDirect3DDevice9** device) override;

private:
    friend class ScriptedDevice9;
    ~ScriptedDirect3D9();
    bool scripted() const { return m_scripted; }
    // The real adapter that stands behind a scripted one.
    UINT realAdapter(UINT adapter) const { return m_scripted ? 0 : adapter; }
    bool knownAdapter(UINT adapter) const { return !m_scripted || adapter < m_adapters.size(); }
    const std::vector<D3DDISPLAYMODE>* scriptedModes(UINT adapter) const;
    // Depth-stencil checks (both kinds) follow rejectedDepthChecks and acceptedDepthFormat.
    bool depthFormatAllowed(D3DFORMAT format);
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

class ScriptedDevice9 final : public IDirect3DDevice9 {
public:
    ScriptedDevice9(IDirect3DDevice9* real, ScriptedDirect3D9* owner, UINT heads);

    DeviceScript script;
    unsigned resetCalls = 0;
    IDirect3DDevice9* real() const { return m_real; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID a0, void** a1) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE TestCooperativeLevel() override;
    UINT STDMETHODCALLTYPE GetAvailableTextureMem() override { return m_real->GetAvailableTextureMem(); }
    HRESULT STDMETHODCALLTYPE EvictManagedResources() override { return m_real->EvictManagedResources(); }
    HRESULT STDMETHODCALLTYPE GetDirect3D(IDirect3D9** a0) override;
    HRESULT STDMETHODCALLTYPE GetDeviceCaps(D3DCAPS9* a0) override { return m_real->GetDeviceCaps(a0); }
    HRESULT STDMETHODCALLTYPE GetDisplayMode(UINT a0, D3DDISPLAYMODE* a1) override { return m_real->GetDisplayMode(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetCreationParameters(D3DDEVICE_CREATION_PARAMETERS * a0) override { return m_real->GetCreationParameters(a0); }
    HRESULT STDMETHODCALLTYPE SetCursorProperties(UINT a0, UINT a1, IDirect3DSurface9* a2) override { return m_real->SetCursorProperties(a0, a1, a2); }
    void STDMETHODCALLTYPE SetCursorPosition(int a0, int a1, DWORD a2) override { m_real->SetCursorPosition(a0, a1, a2); }
    WINBOOL STDMETHODCALLTYPE ShowCursor(WINBOOL a0) override { return m_real->ShowCursor(a0); }
    HRESULT STDMETHODCALLTYPE CreateAdditionalSwapChain(D3DPRESENT_PARAMETERS* a0, IDirect3DSwapChain9** a1) override;
    HRESULT STDMETHODCALLTYPE GetSwapChain(UINT a0, IDirect3DSwapChain9** a1) override;
    UINT STDMETHODCALLTYPE GetNumberOfSwapChains() override;
    HRESULT STDMETHODCALLTYPE Reset(D3DPRESENT_PARAMETERS* a0) override;
    HRESULT STDMETHODCALLTYPE Present(const RECT * a0, const RECT * a1, HWND a2, const RGNDATA * a3) override { return m_real->Present(a0, a1, a2, a3); }
    HRESULT STDMETHODCALLTYPE GetBackBuffer(UINT a0, UINT a1, D3DBACKBUFFER_TYPE a2, IDirect3DSurface9** a3) override { return m_real->GetBackBuffer(a0, a1, a2, a3); }
    HRESULT STDMETHODCALLTYPE GetRasterStatus(UINT a0, D3DRASTER_STATUS* a1) override { return m_real->GetRasterStatus(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetDialogBoxMode(WINBOOL a0) override { return m_real->SetDialogBoxMode(a0); }
    void STDMETHODCALLTYPE SetGammaRamp(UINT a0, DWORD a1, const D3DGAMMARAMP * a2) override { m_real->SetGammaRamp(a0, a1, a2); }
    void STDMETHODCALLTYPE GetGammaRamp(UINT a0, D3DGAMMARAMP* a1) override { m_real->GetGammaRamp(a0, a1); }
    HRESULT STDMETHODCALLTYPE CreateTexture(UINT a0, UINT a1, UINT a2, DWORD a3, D3DFORMAT a4, D3DPOOL a5, IDirect3DTexture9** a6, HANDLE* a7) override;
    HRESULT STDMETHODCALLTYPE CreateVolumeTexture(UINT a0, UINT a1, UINT a2, UINT a3, DWORD a4, D3DFORMAT a5, D3DPOOL a6, IDirect3DVolumeTexture9** a7, HANDLE* a8) override { return m_real->CreateVolumeTexture(a0, a1, a2, a3, a4, a5, a6, a7, a8); }
    HRESULT STDMETHODCALLTYPE CreateCubeTexture(UINT a0, UINT a1, DWORD a2, D3DFORMAT a3, D3DPOOL a4, IDirect3DCubeTexture9** a5, HANDLE* a6) override { return m_real->CreateCubeTexture(a0, a1, a2, a3, a4, a5, a6); }
    HRESULT STDMETHODCALLTYPE CreateVertexBuffer(UINT a0, DWORD a1, DWORD a2, D3DPOOL a3, IDirect3DVertexBuffer9** a4, HANDLE* a5) override { return m_real->CreateVertexBuffer(a0, a1, a2, a3, a4, a5); }
    HRESULT STDMETHODCALLTYPE CreateIndexBuffer(UINT a0, DWORD a1, D3DFORMAT a2, D3DPOOL a3, IDirect3DIndexBuffer9** a4, HANDLE* a5) override { return m_real->CreateIndexBuffer(a0, a1, a2, a3, a4, a5); }
    HRESULT STDMETHODCALLTYPE CreateRenderTarget(UINT a0, UINT a1, D3DFORMAT a2, D3DMULTISAMPLE_TYPE a3, DWORD a4, WINBOOL a5, IDirect3DSurface9** a6, HANDLE* a7) override { return m_real->CreateRenderTarget(a0, a1, a2, a3, a4, a5, a6, a7); }
    HRESULT STDMETHODCALLTYPE CreateDepthStencilSurface(UINT a0, UINT a1, D3DFORMAT a2, D3DMULTISAMPLE_TYPE a3, DWORD a4, WINBOOL a5, IDirect3DSurface9** a6, HANDLE* a7) override;
    HRESULT STDMETHODCALLTYPE UpdateSurface(IDirect3DSurface9 * a0, const RECT * a1, IDirect3DSurface9 * a2, const POINT * a3) override { return m_real->UpdateSurface(a0, a1, a2, a3); }
    HRESULT STDMETHODCALLTYPE UpdateTexture(IDirect3DBaseTexture9* a0, IDirect3DBaseTexture9* a1) override { return m_real->UpdateTexture(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetRenderTargetData(IDirect3DSurface9* a0, IDirect3DSurface9* a1) override { return m_real->GetRenderTargetData(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetFrontBufferData(UINT a0, IDirect3DSurface9* a1) override { return m_real->GetFrontBufferData(a0, a1); }
    HRESULT STDMETHODCALLTYPE StretchRect(IDirect3DSurface9 * a0, const RECT * a1, IDirect3DSurface9 * a2, const RECT * a3, D3DTEXTUREFILTERTYPE a4) override { return m_real->StretchRect(a0, a1, a2, a3, a4); }
    HRESULT STDMETHODCALLTYPE ColorFill(IDirect3DSurface9 * a0, const RECT * a1, D3DCOLOR a2) override { return m_real->ColorFill(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE CreateOffscreenPlainSurface(UINT a0, UINT a1, D3DFORMAT a2, D3DPOOL a3, IDirect3DSurface9** a4, HANDLE* a5) override { return m_real->CreateOffscreenPlainSurface(a0, a1, a2, a3, a4, a5); }
    HRESULT STDMETHODCALLTYPE SetRenderTarget(DWORD a0, IDirect3DSurface9* a1) override { return m_real->SetRenderTarget(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetRenderTarget(DWORD a0, IDirect3DSurface9** a1) override { return m_real->GetRenderTarget(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetDepthStencilSurface(IDirect3DSurface9* a0) override { return m_real->SetDepthStencilSurface(a0); }
    HRESULT STDMETHODCALLTYPE GetDepthStencilSurface(IDirect3DSurface9** a0) override;
    HRESULT STDMETHODCALLTYPE BeginScene() override { return m_real->BeginScene(); }
    HRESULT STDMETHODCALLTYPE EndScene() override { return m_real->EndScene(); }
    HRESULT STDMETHODCALLTYPE Clear(DWORD a0, const D3DRECT * a1, DWORD a2, D3DCOLOR a3, float a4, DWORD a5) override { return m_real->Clear(a0, a1, a2, a3, a4, a5); }
    HRESULT STDMETHODCALLTYPE SetTransform(D3DTRANSFORMSTATETYPE a0, const D3DMATRIX * a1) override { return m_real->SetTransform(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetTransform(D3DTRANSFORMSTATETYPE a0, D3DMATRIX* a1) override { return m_real->GetTransform(a0, a1); }
    HRESULT STDMETHODCALLTYPE MultiplyTransform(D3DTRANSFORMSTATETYPE a0, const D3DMATRIX * a1) override { return m_real->MultiplyTransform(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetViewport(const D3DVIEWPORT9 * a0) override { return m_real->SetViewport(a0); }
    HRESULT STDMETHODCALLTYPE GetViewport(D3DVIEWPORT9* a0) override { return m_real->GetViewport(a0); }
    HRESULT STDMETHODCALLTYPE SetMaterial(const D3DMATERIAL9 * a0) override { return m_real->SetMaterial(a0); }
    HRESULT STDMETHODCALLTYPE GetMaterial(D3DMATERIAL9* a0) override { return m_real->GetMaterial(a0); }
    HRESULT STDMETHODCALLTYPE SetLight(DWORD a0, const D3DLIGHT9 * a1) override { return m_real->SetLight(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetLight(DWORD a0, D3DLIGHT9* a1) override { return m_real->GetLight(a0, a1); }
    HRESULT STDMETHODCALLTYPE LightEnable(DWORD a0, WINBOOL a1) override { return m_real->LightEnable(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetLightEnable(DWORD a0, WINBOOL* a1) override { return m_real->GetLightEnable(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetClipPlane(DWORD a0, const float * a1) override { return m_real->SetClipPlane(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetClipPlane(DWORD a0, float* a1) override { return m_real->GetClipPlane(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetRenderState(D3DRENDERSTATETYPE a0, DWORD a1) override { return m_real->SetRenderState(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetRenderState(D3DRENDERSTATETYPE a0, DWORD* a1) override { return m_real->GetRenderState(a0, a1); }
    HRESULT STDMETHODCALLTYPE CreateStateBlock(D3DSTATEBLOCKTYPE a0, IDirect3DStateBlock9** a1) override { return m_real->CreateStateBlock(a0, a1); }
    HRESULT STDMETHODCALLTYPE BeginStateBlock() override { return m_real->BeginStateBlock(); }
    HRESULT STDMETHODCALLTYPE EndStateBlock(IDirect3DStateBlock9** a0) override { return m_real->EndStateBlock(a0); }
    HRESULT STDMETHODCALLTYPE SetClipStatus(const D3DCLIPSTATUS9 * a0) override { return m_real->SetClipStatus(a0); }
    HRESULT STDMETHODCALLTYPE GetClipStatus(D3DCLIPSTATUS9* a0) override { return m_real->GetClipStatus(a0); }
    HRESULT STDMETHODCALLTYPE GetTexture(DWORD a0, IDirect3DBaseTexture9** a1) override { return m_real->GetTexture(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetTexture(DWORD a0, IDirect3DBaseTexture9* a1) override { return m_real->SetTexture(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetTextureStageState(DWORD a0, D3DTEXTURESTAGESTATETYPE a1, DWORD* a2) override { return m_real->GetTextureStageState(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetTextureStageState(DWORD a0, D3DTEXTURESTAGESTATETYPE a1, DWORD a2) override { return m_real->SetTextureStageState(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetSamplerState(DWORD a0, D3DSAMPLERSTATETYPE a1, DWORD* a2) override { return m_real->GetSamplerState(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetSamplerState(DWORD a0, D3DSAMPLERSTATETYPE a1, DWORD a2) override { return m_real->SetSamplerState(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE ValidateDevice(DWORD* a0) override { return m_real->ValidateDevice(a0); }
    HRESULT STDMETHODCALLTYPE SetPaletteEntries(UINT a0, const PALETTEENTRY * a1) override { return m_real->SetPaletteEntries(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetPaletteEntries(UINT a0, PALETTEENTRY* a1) override { return m_real->GetPaletteEntries(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetCurrentTexturePalette(UINT a0) override { return m_real->SetCurrentTexturePalette(a0); }
    HRESULT STDMETHODCALLTYPE GetCurrentTexturePalette(UINT * a0) override { return m_real->GetCurrentTexturePalette(a0); }
    HRESULT STDMETHODCALLTYPE SetScissorRect(const RECT * a0) override { return m_real->SetScissorRect(a0); }
    HRESULT STDMETHODCALLTYPE GetScissorRect(RECT* a0) override { return m_real->GetScissorRect(a0); }
    HRESULT STDMETHODCALLTYPE SetSoftwareVertexProcessing(WINBOOL a0) override { return m_real->SetSoftwareVertexProcessing(a0); }
    WINBOOL STDMETHODCALLTYPE GetSoftwareVertexProcessing() override { return m_real->GetSoftwareVertexProcessing(); }
    HRESULT STDMETHODCALLTYPE SetNPatchMode(float a0) override { return m_real->SetNPatchMode(a0); }
    float STDMETHODCALLTYPE GetNPatchMode() override { return m_real->GetNPatchMode(); }
    HRESULT STDMETHODCALLTYPE DrawPrimitive(D3DPRIMITIVETYPE a0, UINT a1, UINT a2) override { return m_real->DrawPrimitive(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE DrawIndexedPrimitive(D3DPRIMITIVETYPE a0, INT a1, UINT a2, UINT a3, UINT a4, UINT a5) override { return m_real->DrawIndexedPrimitive(a0, a1, a2, a3, a4, a5); }
    HRESULT STDMETHODCALLTYPE DrawPrimitiveUP(D3DPRIMITIVETYPE a0, UINT a1, const void * a2, UINT a3) override { return m_real->DrawPrimitiveUP(a0, a1, a2, a3); }
    HRESULT STDMETHODCALLTYPE DrawIndexedPrimitiveUP(D3DPRIMITIVETYPE a0, UINT a1, UINT a2, UINT a3, const void * a4, D3DFORMAT a5, const void * a6, UINT a7) override { return m_real->DrawIndexedPrimitiveUP(a0, a1, a2, a3, a4, a5, a6, a7); }
    HRESULT STDMETHODCALLTYPE ProcessVertices(UINT a0, UINT a1, UINT a2, IDirect3DVertexBuffer9* a3, IDirect3DVertexDeclaration9* a4, DWORD a5) override { return m_real->ProcessVertices(a0, a1, a2, a3, a4, a5); }
    HRESULT STDMETHODCALLTYPE CreateVertexDeclaration(const D3DVERTEXELEMENT9 * a0, IDirect3DVertexDeclaration9 ** a1) override { return m_real->CreateVertexDeclaration(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetVertexDeclaration(IDirect3DVertexDeclaration9* a0) override { return m_real->SetVertexDeclaration(a0); }
    HRESULT STDMETHODCALLTYPE GetVertexDeclaration(IDirect3DVertexDeclaration9** a0) override { return m_real->GetVertexDeclaration(a0); }
    HRESULT STDMETHODCALLTYPE SetFVF(DWORD a0) override { return m_real->SetFVF(a0); }
    HRESULT STDMETHODCALLTYPE GetFVF(DWORD* a0) override { return m_real->GetFVF(a0); }
    HRESULT STDMETHODCALLTYPE CreateVertexShader(const DWORD * a0, IDirect3DVertexShader9 ** a1) override { return m_real->CreateVertexShader(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetVertexShader(IDirect3DVertexShader9* a0) override { return m_real->SetVertexShader(a0); }
    HRESULT STDMETHODCALLTYPE GetVertexShader(IDirect3DVertexShader9** a0) override { return m_real->GetVertexShader(a0); }
    HRESULT STDMETHODCALLTYPE SetVertexShaderConstantF(UINT a0, const float * a1, UINT a2) override { return m_real->SetVertexShaderConstantF(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetVertexShaderConstantF(UINT a0, float* a1, UINT a2) override { return m_real->GetVertexShaderConstantF(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetVertexShaderConstantI(UINT a0, const int * a1, UINT a2) override { return m_real->SetVertexShaderConstantI(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetVertexShaderConstantI(UINT a0, int* a1, UINT a2) override { return m_real->GetVertexShaderConstantI(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetVertexShaderConstantB(UINT a0, const WINBOOL * a1, UINT a2) override { return m_real->SetVertexShaderConstantB(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetVertexShaderConstantB(UINT a0, WINBOOL* a1, UINT a2) override { return m_real->GetVertexShaderConstantB(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetStreamSource(UINT a0, IDirect3DVertexBuffer9* a1, UINT a2, UINT a3) override { return m_real->SetStreamSource(a0, a1, a2, a3); }
    HRESULT STDMETHODCALLTYPE GetStreamSource(UINT a0, IDirect3DVertexBuffer9** a1, UINT* a2, UINT* a3) override { return m_real->GetStreamSource(a0, a1, a2, a3); }
    HRESULT STDMETHODCALLTYPE SetStreamSourceFreq(UINT a0, UINT a1) override { return m_real->SetStreamSourceFreq(a0, a1); }
    HRESULT STDMETHODCALLTYPE GetStreamSourceFreq(UINT a0, UINT* a1) override { return m_real->GetStreamSourceFreq(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetIndices(IDirect3DIndexBuffer9* a0) override { return m_real->SetIndices(a0); }
    HRESULT STDMETHODCALLTYPE GetIndices(IDirect3DIndexBuffer9** a0) override { return m_real->GetIndices(a0); }
    HRESULT STDMETHODCALLTYPE CreatePixelShader(const DWORD * a0, IDirect3DPixelShader9 ** a1) override { return m_real->CreatePixelShader(a0, a1); }
    HRESULT STDMETHODCALLTYPE SetPixelShader(IDirect3DPixelShader9* a0) override { return m_real->SetPixelShader(a0); }
    HRESULT STDMETHODCALLTYPE GetPixelShader(IDirect3DPixelShader9** a0) override { return m_real->GetPixelShader(a0); }
    HRESULT STDMETHODCALLTYPE SetPixelShaderConstantF(UINT a0, const float * a1, UINT a2) override { return m_real->SetPixelShaderConstantF(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetPixelShaderConstantF(UINT a0, float* a1, UINT a2) override { return m_real->GetPixelShaderConstantF(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetPixelShaderConstantI(UINT a0, const int * a1, UINT a2) override { return m_real->SetPixelShaderConstantI(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetPixelShaderConstantI(UINT a0, int* a1, UINT a2) override { return m_real->GetPixelShaderConstantI(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE SetPixelShaderConstantB(UINT a0, const WINBOOL * a1, UINT a2) override { return m_real->SetPixelShaderConstantB(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE GetPixelShaderConstantB(UINT a0, WINBOOL* a1, UINT a2) override { return m_real->GetPixelShaderConstantB(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE DrawRectPatch(UINT a0, const float * a1, const D3DRECTPATCH_INFO * a2) override { return m_real->DrawRectPatch(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE DrawTriPatch(UINT a0, const float * a1, const D3DTRIPATCH_INFO * a2) override { return m_real->DrawTriPatch(a0, a1, a2); }
    HRESULT STDMETHODCALLTYPE DeletePatch(UINT a0) override { return m_real->DeletePatch(a0); }
    HRESULT STDMETHODCALLTYPE CreateQuery(D3DQUERYTYPE a0, IDirect3DQuery9** a1) override;

private:
    ~ScriptedDevice9();

    IDirect3DDevice9* m_real;
    ScriptedDirect3D9* m_owner;
    UINT m_heads;
    ULONG m_references = 1;
};

}  // namespace vexiltest
