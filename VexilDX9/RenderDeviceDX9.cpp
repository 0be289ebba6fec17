#include <VexilDX9/RenderDeviceDX9.h>

#include <VexilDX9/LogD3D.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9.RenderDeviceDX9")

namespace VexilDX9 {

namespace {

// Stencil-bearing formats first; D24X8 is deliberately left out.
const D3DFORMAT kDepthStencilCandidates[] = {D3DFMT_D24S8, D3DFMT_D24X4S4, D3DFMT_D15S1, D3DFMT_D32, D3DFMT_D16};

const DWORD kVertexProcessingModes[] = {D3DCREATE_HARDWARE_VERTEXPROCESSING, D3DCREATE_MIXED_VERTEXPROCESSING,
                                        D3DCREATE_SOFTWARE_VERTEXPROCESSING};

const unsigned int kMaxBackBuffers = 3;
const unsigned int kMaxLostRetries = 10;
const DWORD kLostDeviceWaitMs = 500;

bool isTransientCreationFailure(HRESULT hr) { return hr == D3DERR_DEVICELOST || hr == D3DERR_NOTAVAILABLE; }

}  // namespace

// ---- SwapChain and RenderBuffer ----

RenderDeviceDX9::SwapChain::SwapChain() = default;
RenderDeviceDX9::SwapChain::SwapChain(const SwapChain& other) = default;
RenderDeviceDX9::SwapChain& RenderDeviceDX9::SwapChain::operator=(const SwapChain& other) = default;
RenderDeviceDX9::SwapChain::~SwapChain() = default;

RenderDeviceDX9::RenderBuffer::RenderBuffer() : implicitZStencil(false), status(0) {}
RenderDeviceDX9::RenderBuffer::RenderBuffer(const RenderBuffer& other) = default;
RenderDeviceDX9::RenderBuffer& RenderDeviceDX9::RenderBuffer::operator=(const RenderBuffer& other) = default;
RenderDeviceDX9::RenderBuffer::~RenderBuffer() = default;

// ---- RenderDeviceDX9 ----

RenderDeviceDX9::RenderDeviceDX9() : m_deviceType(D3DDEVTYPE_HAL) {}

RenderDeviceDX9::RenderDeviceDX9(ATL::CComPtr<IDirect3D9>& d3d) : m_deviceType(D3DDEVTYPE_HAL) {
    // The holder adopts; the caller keeps its own reference.
    if (d3d) d3d->AddRef();
    m_d3d.reset(d3d.p);
}

RenderDeviceDX9::RenderDeviceDX9(const RenderDeviceDX9& other) = default;
RenderDeviceDX9& RenderDeviceDX9::operator=(const RenderDeviceDX9& other) = default;
RenderDeviceDX9::~RenderDeviceDX9() = default;

unsigned int RenderDeviceDX9::initialize(D3DDEVTYPE type, const DeviceGroup& group, HWND focusWindow) {
    ZEB_TRACE(fileLogger, "RenderDeviceDX9::initialize");
    zeb::Array<unsigned int> ordinals;
    zeb::Array<SwapChainParameterDX9> params;
    const unsigned int n = group.mainSwapChainParam(ordinals, params);
    if (n == 0) {
        ZEB_LOG(fileLogger, 3, 98, "Cannot initialize RenderDeviceDX9 with no device parameters");
        return 0;
    }
    if (!validateMainSwapChainParam(params, focusWindow)) {
        ZEB_LOG(fileLogger, 3, 104, "One or more device parameter is not valid");
        return 0;
    }
    m_deviceType = type;
    // A windowed setup may use any subset of the heads; full screen takes one head or all.
    if (!params[0].windowed && n != 1 && n != group.group().size()) {
        ZEB_LOG(fileLogger, 3, 116,
                "RenderDeviceDX9 currently restricts full screen adapter size to either only one or all within the "
                "device group");
        return 0;
    }
    m_presentParams.resize(n);
    for (unsigned int i = 0; i < n; ++i) {
        if (!createPresentParam(ordinals[i], params[i], m_presentParams[i])) {
            // Indexed by head, as the group lists adapters; kept that way on purpose.
            ZEB_LOG(fileLogger, 3, 128,
                    "Cannot create parameter for ordinal " + group.group().adapterInfoList()[i].renderParameter().adapterId);
            return 0;
        }
    }
    const UINT adapter = n == 1 ? ordinals[0] : group.headOrdinal();
    const DWORD groupFlag = n > 1 ? D3DCREATE_ADAPTERGROUP_DEVICE : 0;
    for (DWORD mode : kVertexProcessingModes) {
        ZEB_LOG(fileLogger, 2, 160, "Creating Direct3D9 device using vertex processing mode " + (unsigned long)mode);
        if (SUCCEEDED(createDevice(adapter, focusWindow, groupFlag | mode))) {
            registerImplicitRenderResource(ordinals, params);
            return n;
        }
    }
    return 0;
}

// One vertex-processing mode: waits out a lost or busy device a bounded number of times, and
// retries at once while video memory is short.
HRESULT RenderDeviceDX9::createDevice(UINT adapter, HWND focusWindow, DWORD flags) {
    unsigned int retries = 0;
    for (;;) {
        HRESULT hr = m_d3d->CreateDevice(adapter, m_deviceType, focusWindow, flags, m_presentParams.getData(),
                                         m_device.receive());
        logD3DFunction(fileLogger, "IDirect3D9::CreateDevice", hr, false);
        if (hr == D3DERR_DEVICELOST) ZEB_LOG(fileLogger, 3, 179, "Device is lost at creation time");
        if (isTransientCreationFailure(hr)) {
            ++retries;
            Sleep(kLostDeviceWaitMs);
        }
        if (hr == D3DERR_OUTOFVIDEOMEMORY) continue;
        if (isTransientCreationFailure(hr) && retries < kMaxLostRetries) continue;
        return hr;
    }
}

bool RenderDeviceDX9::validateMainSwapChainParam(const zeb::Array<SwapChainParameterDX9>& params, HWND focusWindow) {
    ZEB_TRACE(fileLogger, "RenderDeviceDX9::validateMainSwapChainParam");
    const unsigned int n = params.size();
    if (n == 0 || !focusWindow) {
        ZEB_LOG(fileLogger, 3, 273, "Invalid parameter");
        return false;
    }
    for (unsigned int i = 0; i + 1 < n; ++i) {
        if (params[i].windowed != params[i + 1].windowed) {
            ZEB_LOG(fileLogger, 3, 283, "All main swap chains must be either windowed or full screen");
            return false;
        }
        if (params[i].windowed) continue;
        for (unsigned int j = i + 1; j < n; ++j) {
            if (params[j].window == params[i].window) {
                ZEB_LOG(fileLogger, 3, 294, "Each swap chains must have unique windows");
                return false;
            }
        }
    }
    if (params[0].windowed) return true;
    if (params[0].window == focusWindow) {
        for (unsigned int j = 1; j < n; ++j) {
            if (params[j].window == focusWindow) {
                ZEB_LOG(fileLogger, 3, 308,
                        "Direct3D does not allow using the focus window more than once in a full-screen adapter setup");
                return false;
            }
        }
    }
    return true;
}

bool RenderDeviceDX9::createPresentParam(unsigned int ordinal, const SwapChainParameterDX9& p,
                                         D3DPRESENT_PARAMETERS& pp) {
    ZEB_TRACE(fileLogger, "RenderDeviceDX9::createPresentParam");
    D3DDISPLAYMODE mode = {};
    HRESULT hr = m_d3d->GetAdapterDisplayMode(ordinal, &mode);
    if (FAILED(hr)) {
        logD3DFunction(fileLogger, "IDirect3D9::GetAdapterDisplayMode", hr, false);
        return false;
    }
    pp = D3DPRESENT_PARAMETERS();
    pp.hDeviceWindow = p.window;
    pp.Windowed = p.windowed;
    pp.BackBufferFormat = mode.Format;
    if (!p.windowed) {
        pp.BackBufferWidth = mode.Width;
        pp.BackBufferHeight = mode.Height;
        pp.FullScreen_RefreshRateInHz = mode.RefreshRate;
    }
    pp.BackBufferCount = p.backBufferCount < kMaxBackBuffers ? p.backBufferCount : kMaxBackBuffers;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_DEFAULT;
    pp.EnableAutoDepthStencil = p.depthStencil;
    if (p.depthStencil) {
        pp.AutoDepthStencilFormat = configureDepthStencilFormat(ordinal, mode.Format);
        pp.Flags = D3DPRESENTFLAG_DISCARD_DEPTHSTENCIL;
        // Only full screen gives the request up; a windowed chain keeps it with no format.
        if (pp.AutoDepthStencilFormat == D3DFMT_UNKNOWN && !p.windowed) {
            pp.EnableAutoDepthStencil = FALSE;
            pp.Flags = 0;
        }
    }
    configureMultiSampling(ordinal, p, pp);
    return true;
}

void RenderDeviceDX9::configureMultiSampling(unsigned int ordinal, const SwapChainParameterDX9& p,
                                             D3DPRESENT_PARAMETERS& pp) {
    DWORD qualityLevels = 0;
    const D3DMULTISAMPLE_TYPE type = static_cast<D3DMULTISAMPLE_TYPE>(p.multiSampleType);
    HRESULT hr = m_d3d->CheckDeviceMultiSampleType(ordinal, m_deviceType, pp.BackBufferFormat, pp.Windowed, type,
                                                   &qualityLevels);
    if (SUCCEEDED(hr)) {
        pp.MultiSampleType = type;
        pp.MultiSampleQuality = type != D3DMULTISAMPLE_NONE && qualityLevels > 0 ? qualityLevels - 1 : 0;
        pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
        return;
    }
    ZEB_LOG(fileLogger, 3, 83, "Cannot honor multisample request of type " + p.multiSampleType + " on adapter " + ordinal);
    pp.MultiSampleType = D3DMULTISAMPLE_NONE;
    pp.MultiSampleQuality = 0;
}

D3DFORMAT RenderDeviceDX9::configureDepthStencilFormat(unsigned int ordinal, D3DFORMAT adapterFormat) {
    for (D3DFORMAT candidate : kDepthStencilCandidates) {
        if (SUCCEEDED(m_d3d->CheckDepthStencilMatch(ordinal, m_deviceType, adapterFormat, adapterFormat, candidate))) {
            ZEB_LOG(fileLogger, 2, 360, "Using ZStencil buffer format " + static_cast<unsigned int>(candidate));
            return candidate;
        }
    }
    return D3DFMT_UNKNOWN;
}

void RenderDeviceDX9::registerImplicitRenderResource(const zeb::Array<unsigned int>& ordinals,
                                                     const zeb::Array<SwapChainParameterDX9>& params) {
    for (unsigned int i = 0; i < ordinals.size(); ++i) {
        RenderBufferHWNDIndex entry;
        entry.window = params[i].window;
        RenderBuffer& buffer = entry.buffer;
        buffer.swapChain.reset(new SwapChain());
        HRESULT hr = m_device->GetSwapChain(i, buffer.swapChain->swapChain().receive());
        if (FAILED(hr)) logD3DFunction(fileLogger, "IDirect3DDevice9::GetSwapChain", hr, false);
        if (!buffer.swapChain->swapChain())
            ZEB_LOG(fileLogger, 3, 220, "Unable to retrieve implicit swap chain from device " + ordinals[i]);

        const D3DPRESENT_PARAMETERS& pp = m_presentParams[i];
        if (pp.EnableAutoDepthStencil) {
            buffer.implicitZStencil = true;
            if (FAILED(m_device->GetDepthStencilSurface(buffer.depthStencil.receive()))) {
                ZEB_LOG(fileLogger, 3, 230,
                        "Conflicting render parameter of device " + ordinals[i] +
                            " with device implicit z-stencil : EnableAutoDepthStencil is true but no implicit z-stencil "
                            "allocated");
                buffer.status |= MISSING_IMPLICIT_ZSTENCIL;
            }
        } else {
            const D3DFORMAT format = configureDepthStencilFormat(ordinals[i], pp.BackBufferFormat);
            if (params[i].depthStencil) {
                buffer.implicitZStencil = false;
                hr = m_device->CreateDepthStencilSurface(pp.BackBufferWidth, pp.BackBufferHeight, format,
                                                         pp.MultiSampleType, pp.MultiSampleQuality, TRUE,
                                                         buffer.depthStencil.receive(), nullptr);
                if (FAILED(hr)) {
                    ZEB_LOG(fileLogger, 3, 252, "Cannot create a depth stencil surface for device " + ordinals[i]);
                } else {
                    buffer.status |= SEPARATE_ZSTENCIL;
                    if (format == D3DFMT_D16) buffer.status |= SEPARATE_ZSTENCIL_D16;
                }
            }
        }
        m_renderBuffers.append(entry);
    }
}

bool RenderDeviceDX9::reset(HRESULT& result) {
    ZEB_TRACE(fileLogger, "RenderDeviceDX9::reset");
    if (!m_device) {
        // A device that never came up has nothing to reset.
        result = D3DERR_INVALIDCALL;
        return false;
    }
    result = m_device->TestCooperativeLevel();
    if (result != D3DERR_DEVICENOTRESET) return false;
    result = m_device->Reset(m_presentParams.getData());
    if (SUCCEEDED(result)) return true;
    logD3DFunction(fileLogger, "IDirect3DDevice9::Reset", result, false);
    return false;
}

bool RenderDeviceDX9::findRenderBuffer(HWND window, RenderBuffer& out) const {
    for (const RenderBufferHWNDIndex& entry : m_renderBuffers) {
        if (entry.window == window) {
            out = entry.buffer;
            return true;
        }
    }
    return false;
}

}  // namespace VexilDX9
