#include "Device.h"

#include <VexilDX9/DeviceInfo.h>

namespace vexilview {

bool ViewerDevice::create(HWND window, bool depthStencil, bool throughAdapter, std::string& problem) {
    if (throughAdapter) return createThroughAdapter(window, depthStencil, problem);
    const zeb::Array<zeb::String>& adapters = enumerateHALDeviceInformation()->deviceNames();
    if (adapters.empty()) {
        problem = "no Direct3D 9 HAL adapter";
        return false;
    }
    VexilDX9::SwapChainParameterDX9 chain;
    chain.backBufferCount = 1;
    chain.spareWord = 0;
    chain.windowed = true;
    chain.depthStencil = depthStencil;
    chain.window = window;
    VexilDX9::RenderDeviceParameterDX9 parameter;
    parameter.adapterId = adapters[0];
    parameter.swapChains.append(chain);
    zeb::Array<VexilDX9::RenderDeviceParameterDX9> parameters;
    parameters.append(parameter);
    if (m_manager.createRenderDevice(D3DDEVTYPE_HAL, parameters, window) == 0 ||
        !(m_device = m_manager.renderDevice(D3DDEVTYPE_HAL, window)) || !m_device->d3dDevice()) {
        problem = "no Direct3D 9 device could be created";
        return false;
    }
    return true;
}

bool ViewerDevice::createThroughAdapter(HWND window, bool depthStencil, std::string& problem) {
    m_adapter = std::make_unique<AdapterD3D9>();
    if (!m_adapter->initialize() || m_adapter->headCount() == 0) {
        problem = "no Direct3D 9 display head";
        return false;
    }
    zeb::Array<zeb::String> heads;
    heads.append(zeb::String(m_adapter->displayHead(0).identifier.DeviceName));
    zeb::Array<HWND> windows;
    windows.append(window);
    if (!m_adapter->createSwapChain(heads, window, windows, true, D3DDEVTYPE_HAL) || !m_adapter->device()) {
        problem = "no Direct3D 9 device could be created on " + std::string(heads[0].getUTF8String().c_str());
        return false;
    }
    if (depthStencil) get()->SetDepthStencilSurface(m_adapter->depthBuffer(heads[0]).get());
    return true;
}

bool ViewerDevice::reset(HRESULT& state) {
    if (!m_adapter) return m_device->reset(state);
    state = m_adapter->reset();
    const zeb::Array<zeb::String>& heads = m_adapter->activeChainOSLocator();
    if (SUCCEEDED(state) && !heads.empty()) get()->SetDepthStencilSurface(m_adapter->depthBuffer(heads[0]).get());
    return SUCCEEDED(state);
}

bool ViewerDevice::supportsSize(unsigned width, unsigned height, std::string& problem) const {
    D3DCAPS9 caps;
    if (FAILED(get()->GetDeviceCaps(&caps)) || width > caps.MaxTextureWidth || height > caps.MaxTextureHeight) {
        problem = "the device refuses pictures of " + std::to_string(width) + "x" + std::to_string(height) +
                  " (at most " + std::to_string(caps.MaxTextureWidth) + "x" + std::to_string(caps.MaxTextureHeight) + ")";
        return false;
    }
    return true;
}

HRESULT OffscreenTarget::create(IDirect3DDevice9* device, unsigned width, unsigned height) {
    m_width = width;
    m_height = height;
    HRESULT hr = device->CreateRenderTarget(width, height, D3DFMT_X8R8G8B8, D3DMULTISAMPLE_NONE, 0, FALSE,
                                            m_colour.receive(), nullptr);
    if (SUCCEEDED(hr))
        hr = device->CreateDepthStencilSurface(width, height, D3DFMT_D24S8, D3DMULTISAMPLE_NONE, 0, TRUE,
                                               m_depth.receive(), nullptr);
    if (SUCCEEDED(hr))
        hr = device->CreateOffscreenPlainSurface(width, height, D3DFMT_X8R8G8B8, D3DPOOL_SYSTEMMEM, m_copy.receive(),
                                                 nullptr);
    return hr;
}

void OffscreenTarget::bind(IDirect3DDevice9* device) const {
    device->SetRenderTarget(0, m_colour.get());
    device->SetDepthStencilSurface(m_depth.get());
}

bool OffscreenTarget::readBack(IDirect3DDevice9* device, vexilsupport::Image& image) const {
    D3DLOCKED_RECT locked;
    if (FAILED(device->GetRenderTargetData(m_colour.get(), m_copy.get())) ||
        FAILED(m_copy->LockRect(&locked, nullptr, D3DLOCK_READONLY)))
        return false;
    image.width = m_width;
    image.height = m_height;
    image.pixels.resize(static_cast<size_t>(m_width) * m_height);
    for (unsigned y = 0; y < m_height; ++y) {
        const D3DCOLOR* row = reinterpret_cast<const D3DCOLOR*>(static_cast<const char*>(locked.pBits) + y * locked.Pitch);
        for (unsigned x = 0; x < m_width; ++x) image.pixels[y * m_width + x] = row[x] | 0xFF000000u;
    }
    m_copy->UnlockRect();
    return true;
}

HWND createViewerWindow(unsigned width, unsigned height, bool visible, WNDPROC procedure) {
    WNDCLASSW wc = {};
    wc.lpfnWndProc = procedure ? procedure : DefWindowProcW;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursor(nullptr, IDC_ARROW);
    wc.lpszClassName = visible ? L"VexilViewWindow" : L"VexilViewHidden";
    RegisterClassW(&wc);
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRect(&rect, WS_OVERLAPPEDWINDOW, FALSE);
    HWND window = CreateWindowExW(0, wc.lpszClassName, L"vexil-view", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                                  rect.right - rect.left, rect.bottom - rect.top, nullptr, nullptr, wc.hInstance, nullptr);
    if (window && visible) ShowWindow(window, SW_SHOW);
    return window;
}

}  // namespace vexilview
