#pragma once
// One Direct3D 9 device over one device group: a single adapter, or every head of a multi-head
// card as an adapter-group device, with the implicit swap chain and depth buffer of each head.
#include <VexilDX9/CComPtr.h>
#include <VexilDX9/DeviceParameter.h>
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/Resource.h>

#include <d3d9.h>
#include <windows.h>

namespace VexilDX9 {

class RenderDeviceManagerDX9;

class VEXILDX9_API RenderDeviceDX9 {
public:
    // A swap chain of the device; the second holder is not filled by the device itself.
    class VEXILDX9_API SwapChain {
    public:
        SwapChain();
        SwapChain(const SwapChain& other);
        SwapChain& operator=(const SwapChain& other);
        ~SwapChain();

        COMPtr<IDirect3DSwapChain9>::pointer& swapChain() { return m_swapChain; }
        const COMPtr<IDirect3DSwapChain9>::pointer& swapChain() const { return m_swapChain; }
        COMPtr<IDirect3DSurface9>::pointer& backBuffer() { return m_backBuffer; }
        const COMPtr<IDirect3DSurface9>::pointer& backBuffer() const { return m_backBuffer; }

    private:
        COMPtr<IDirect3DSwapChain9>::pointer m_swapChain;
        COMPtr<IDirect3DSurface9>::pointer m_backBuffer;
    };
    typedef zeb::SharedResource<zeb::PointerStorage<SwapChain, 0, 3>, 0> SharedSwapChain;

    // Status bits of a render buffer.
    enum RenderBufferStatus : unsigned int {
        MISSING_IMPLICIT_ZSTENCIL = 1,  // an automatic depth-stencil was asked for and none exists
        SEPARATE_ZSTENCIL = 2,          // a separate depth-stencil surface was created
        SEPARATE_ZSTENCIL_D16 = 4       // that surface has format D3DFMT_D16
    };

    // What a head renders into: its swap chain and its depth-stencil buffer.
    struct VEXILDX9_API RenderBuffer {
        RenderBuffer();
        RenderBuffer(const RenderBuffer& other);
        RenderBuffer& operator=(const RenderBuffer& other);
        ~RenderBuffer();

        SharedSwapChain swapChain;
        bool implicitZStencil;  // the depth-stencil buffer is the device's automatic one
        COMPtr<IDirect3DSurface9>::pointer depthStencil;
        unsigned int status;
    };

    struct RenderBufferHWNDIndex {
        HWND window;  // of the head's main swap chain
        RenderBuffer buffer;
    };

    RenderDeviceDX9(const RenderDeviceDX9& other);
    RenderDeviceDX9& operator=(const RenderDeviceDX9& other);
    ~RenderDeviceDX9();

    COMPtr<IDirect3DDevice9>::pointer& d3dDevice() { return m_device; }

    // Resets a device that reports D3DERR_DEVICENOTRESET; result tells a healthy device (D3D_OK)
    // from one still lost. True only when Reset was called and succeeded.
    bool reset(HRESULT& result);
    bool findRenderBuffer(HWND window, RenderBuffer& out) const;

private:
    friend class RenderDeviceManagerDX9;

    RenderDeviceDX9();
    explicit RenderDeviceDX9(ATL::CComPtr<IDirect3D9>& d3d);

    // Brings the device up for the group's main swap chains; their number, or 0 on failure.
    unsigned int initialize(D3DDEVTYPE type, const DeviceGroup& group, HWND focusWindow);
    bool validateMainSwapChainParam(const zeb::Array<SwapChainParameterDX9>& params, HWND focusWindow);
    bool createPresentParam(unsigned int ordinal, const SwapChainParameterDX9& p, D3DPRESENT_PARAMETERS& pp);
    void configureMultiSampling(unsigned int ordinal, const SwapChainParameterDX9& p, D3DPRESENT_PARAMETERS& pp);
    D3DFORMAT configureDepthStencilFormat(unsigned int ordinal, D3DFORMAT adapterFormat);
    void registerImplicitRenderResource(const zeb::Array<unsigned int>& ordinals,
                                        const zeb::Array<SwapChainParameterDX9>& params);
    HRESULT createDevice(UINT adapter, HWND focusWindow, DWORD flags);

    D3DDEVTYPE m_deviceType;
    COMPtr<IDirect3D9>::pointer m_d3d;
    COMPtr<IDirect3DDevice9>::pointer m_device;
    zeb::Array<RenderBufferHWNDIndex> m_renderBuffers;
    zeb::Array<D3DPRESENT_PARAMETERS> m_presentParams;  // one per head, kept for reset
};

typedef RenderDeviceDX9::RenderBuffer RenderBuffer;

}  // namespace VexilDX9
