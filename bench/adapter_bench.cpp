// The multi-head adapter against bare Direct3D: one windowed head brought up with its swap chain
// and depth buffer and released again.
#include <VexilDX9/VexilDX9.h>

#include "BenchTimer.h"

#include <d3d9.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>

namespace {

HWND makeWindow() {
    WNDCLASSW wc = {};
    wc.lpfnWndProc = DefWindowProcW;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"VexilAdapterBench";
    RegisterClassW(&wc);
    return CreateWindowExW(0, L"VexilAdapterBench", L"bench", WS_OVERLAPPEDWINDOW, 0, 0, 160, 120, nullptr, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
}

// The calls the adapter's result amounts to, with the same present parameters, done by hand.
bool bareChainUpAndDown(HWND window) {
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!d3d) return false;
    D3DDISPLAYMODE mode = {};
    d3d->GetAdapterDisplayMode(D3DADAPTER_DEFAULT, &mode);
    D3DPRESENT_PARAMETERS pp = {};
    pp.BackBufferCount = 1;
    pp.Windowed = TRUE;
    pp.BackBufferFormat = mode.Format;
    pp.hDeviceWindow = window;
    pp.SwapEffect = D3DSWAPEFFECT_COPY;
    pp.EnableAutoDepthStencil = TRUE;
    pp.AutoDepthStencilFormat = D3DFMT_D24S8;
    IDirect3DDevice9* device = nullptr;
    IDirect3DSwapChain9* chain = nullptr;
    IDirect3DSurface9* depth = nullptr;
    const bool ok = SUCCEEDED(d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, window,
                                                D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &device)) &&
                    SUCCEEDED(device->GetSwapChain(0, &chain)) && SUCCEEDED(device->GetDepthStencilSurface(&depth));
    if (depth) depth->Release();
    if (chain) chain->Release();
    if (device) device->Release();
    d3d->Release();
    return ok;
}

bool adapterChainUpAndDown(const zeb::Array<zeb::String>& names, const zeb::Array<HWND>& windows) {
    AdapterD3D9 adapter;
    const bool ok = adapter.initialize() && adapter.createSwapChain(names, windows[0], windows, true, D3DDEVTYPE_HAL);
    adapter.cleanup();
    return ok;
}

}  // namespace

int main() {
    zeb::LogFactory::setDefaultSinkEnabled(false);
    HWND window = makeWindow();
    zeb::Array<HWND> windows;
    windows.append(window);
    zeb::Array<zeb::String> names;
    {
        AdapterD3D9 adapter;
        D3DADAPTER_IDENTIFIER9 identifier;
        if (!adapter.initialize() || !adapter.adapterIdentifier(0, identifier)) {
            std::printf("no Direct3D adapter\n");
            return 1;
        }
        names.append(identifier.DeviceName);
    }
    // Warm both paths once (driver start-up), then alternate so drift hits both alike.
    bool ok = bareChainUpAndDown(window) && adapterChainUpAndDown(names, windows);
    double ours = 1e30, theirs = 1e30;
    for (int round = 0; round < 7; ++round) {
        theirs = std::min(theirs, vexilbench::bestOf(1, [&] { ok = bareChainUpAndDown(window) && ok; }));
        ours = std::min(ours, vexilbench::bestOf(1, [&] { ok = adapterChainUpAndDown(names, windows) && ok; }));
    }
    if (!ok) std::printf("device creation failed\n");
    vexilbench::report("createSwapChain + cleanup (1 windowed head)", ours, theirs,
                       "Create9/CreateDevice/GetSwapChain/GetDepth/Release", 1.1);
    DestroyWindow(window);
    return ok ? 0 : 1;
}
