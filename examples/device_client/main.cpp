// Two windows on the default adapter share one windowed device: each is cleared to its own
// colour and presented, then everything is shut down and checked to be released.
#include <VexilDX9/VexilDX9.h>

#include <d3d9.h>
#include <windows.h>

#include <cstdio>

namespace {

HWND makeWindow(const wchar_t* title) {
    static bool registered = false;
    if (!registered) {
        WNDCLASSW wc = {};
        wc.lpfnWndProc = DefWindowProcW;
        wc.hInstance = GetModuleHandleW(nullptr);
        wc.lpszClassName = L"VexilDeviceClient";
        RegisterClassW(&wc);
        registered = true;
    }
    HWND window = CreateWindowExW(0, L"VexilDeviceClient", title, WS_OVERLAPPEDWINDOW, 0, 0, 160, 120, nullptr,
                                  nullptr, GetModuleHandleW(nullptr), nullptr);
    ShowWindow(window, SW_SHOWNOACTIVATE);
    return window;
}

VexilDX9::SwapChainParameterDX9 windowedChain(HWND window) {
    VexilDX9::SwapChainParameterDX9 chain;
    chain.backBufferCount = 1;
    chain.spareWord = 0;
    chain.windowed = true;
    chain.depthStencil = true;
    chain.window = window;
    return chain;
}

// The colour the back buffer holds at its top-left pixel.
D3DCOLOR backBufferColour(IDirect3DDevice9* device) {
    D3DCOLOR colour = 0;
    IDirect3DSurface9* back = nullptr;
    IDirect3DSurface9* copy = nullptr;
    D3DSURFACE_DESC desc;
    if (FAILED(device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back))) return colour;
    back->GetDesc(&desc);
    if (SUCCEEDED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                      nullptr)) &&
        SUCCEEDED(device->GetRenderTargetData(back, copy))) {
        D3DLOCKED_RECT locked;
        if (SUCCEEDED(copy->LockRect(&locked, nullptr, D3DLOCK_READONLY))) {
            colour = *static_cast<const D3DCOLOR*>(locked.pBits) & 0xFFFFFF;
            copy->UnlockRect();
        }
    }
    if (copy) copy->Release();
    back->Release();
    return colour;
}

bool clearAndPresent(IDirect3DDevice9* device, HWND window, D3DCOLOR colour) {
    device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, colour, 1.0f, 0);
    const D3DCOLOR seen = backBufferColour(device);
    const HRESULT presented = device->Present(nullptr, nullptr, window, nullptr);
    std::printf("window %p cleared to %06lX, presented: %s\n", static_cast<void*>(window),
                static_cast<unsigned long>(seen), SUCCEEDED(presented) ? "yes" : "no");
    return seen == (colour & 0xFFFFFF) && SUCCEEDED(presented);
}

}  // namespace

int main() {
    zeb::LogFactory::setDefaultSinkEnabled(false);
    const zeb::Array<zeb::String>& adapters = enumerateHALDeviceInformation()->deviceNames();
    if (adapters.empty()) {
        std::printf("no HAL adapter\n");
        return 1;
    }
    HWND first = makeWindow(L"first");
    HWND second = makeWindow(L"second");

    bool drawn = false;
    IDirect3DDevice9* watched = nullptr;
    {
        VexilDX9::RenderDeviceManagerDX9 manager;
        VexilDX9::RenderDeviceParameterDX9 parameter;
        parameter.adapterId = adapters[0];
        parameter.swapChains.append(windowedChain(first));
        parameter.swapChains.append(windowedChain(second));
        zeb::Array<VexilDX9::RenderDeviceParameterDX9> parameters;
        parameters.append(parameter);

        const unsigned mainChains = manager.createRenderDevice(D3DDEVTYPE_HAL, parameters, first);
        auto device = manager.renderDevice(D3DDEVTYPE_HAL, second);
        if (mainChains == 1 && device && device->d3dDevice()) {
            watched = device->d3dDevice().get();
            watched->AddRef();
            drawn = clearAndPresent(watched, first, D3DCOLOR_XRGB(200, 30, 30)) &&
                    clearAndPresent(watched, second, D3DCOLOR_XRGB(30, 30, 200));
        }
    }
    // The manager is gone: the reference taken above must be the last one.
    const ULONG left = watched ? watched->Release() : 1;
    DestroyWindow(second);
    DestroyWindow(first);
    std::printf("%s\n", drawn && left == 0 ? "two windows presented, shut down cleanly" : "device client failed");
    return drawn && left == 0 ? 0 : 1;
}
