// Device management against bare Direct3D: bringing a windowed device up and down through the
// manager and through the multi-head adapter, and finding the device of a window among 64.
#include <VexilDX9/VexilDX9.h>

#include "BenchTimer.h"

#include <d3d9.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

namespace {

const unsigned kWindows = 64;
const unsigned kLookupRounds = 20000;
volatile UINT_PTR g_sink;

HWND makeWindow() {
    static bool registered = false;
    if (!registered) {
        WNDCLASSW wc = {};
        wc.lpfnWndProc = DefWindowProcW;
        wc.hInstance = GetModuleHandleW(nullptr);
        wc.lpszClassName = L"VexilDeviceBench";
        RegisterClassW(&wc);
        registered = true;
    }
    return CreateWindowExW(0, L"VexilDeviceBench", L"bench", WS_OVERLAPPEDWINDOW, 0, 0, 160, 120, nullptr, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
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

zeb::Array<VexilDX9::RenderDeviceParameterDX9> parametersFor(const zeb::String& adapter, const std::vector<HWND>& windows) {
    VexilDX9::RenderDeviceParameterDX9 parameter;
    parameter.adapterId = adapter;
    for (HWND window : windows) parameter.swapChains.append(windowedChain(window));
    zeb::Array<VexilDX9::RenderDeviceParameterDX9> all;
    all.append(parameter);
    return all;
}

// What the manager asks of Direct3D for one windowed chain with a depth buffer, done by hand.
bool bareDeviceUpAndDown(HWND window) {
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!d3d) return false;
    D3DDISPLAYMODE mode = {};
    d3d->GetAdapterDisplayMode(D3DADAPTER_DEFAULT, &mode);
    D3DPRESENT_PARAMETERS pp = {};
    pp.hDeviceWindow = window;
    pp.Windowed = TRUE;
    pp.BackBufferFormat = mode.Format;
    pp.BackBufferCount = 1;
    pp.EnableAutoDepthStencil = TRUE;
    pp.AutoDepthStencilFormat = D3DFMT_D24S8;
    pp.Flags = D3DPRESENTFLAG_DISCARD_DEPTHSTENCIL;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    IDirect3DDevice9* device = nullptr;
    HRESULT hr = d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, window, D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp,
                                   &device);
    if (device) device->Release();
    d3d->Release();
    return SUCCEEDED(hr);
}

bool managedDeviceUpAndDown(const zeb::String& adapter, HWND window) {
    VexilDX9::RenderDeviceManagerDX9 manager;
    return manager.createRenderDevice(D3DDEVTYPE_HAL, parametersFor(adapter, {window}), window) == 1;
}

// Times a device brought up and down both ways: both paths warmed once (driver start-up), then
// alternated so drift hits both alike, best of seven each.
template <class Ours, class Bare>
void compareUpAndDown(const char* what, Ours ours, Bare bare, const char* bareName) {
    bool ok = bare() && ours();
    double oursTime = 1e30, bareTime = 1e30;
    for (int round = 0; round < 7; ++round) {
        bareTime = std::min(bareTime, vexilbench::bestOf(1, [&] { ok = bare() && ok; }));
        oursTime = std::min(oursTime, vexilbench::bestOf(1, [&] { ok = ours() && ok; }));
    }
    if (!ok) std::printf("%s: device creation failed\n", what);
    vexilbench::report(what, oursTime, bareTime, bareName, 1.1);
}

void benchDeviceLifetime(const zeb::String& adapter) {
    HWND window = makeWindow();
    compareUpAndDown("createRenderDevice + teardown (1 window)", [&] { return managedDeviceUpAndDown(adapter, window); },
                     [&] { return bareDeviceUpAndDown(window); }, "Direct3DCreate9/CreateDevice/Release");
    DestroyWindow(window);
}

void benchWindowLookup(const zeb::String& adapter) {
    std::vector<HWND> windows;
    for (unsigned i = 0; i < kWindows; ++i) windows.push_back(makeWindow());
    VexilDX9::RenderDeviceManagerDX9 manager;
    if (manager.createRenderDevice(D3DDEVTYPE_HAL, parametersFor(adapter, windows), windows[0]) != 1) {
        vexilbench::note("device_bench", "FAILED: device creation failed");
        return;
    }
    std::vector<std::pair<HWND, VexilDX9::RenderDeviceDX9*>> direct;
    for (HWND window : windows) direct.emplace_back(window, manager.renderDevice(D3DDEVTYPE_HAL, window).get());

    double ours = vexilbench::bestOf(5, [&] {
        UINT_PTR sum = 0;
        for (unsigned round = 0; round < kLookupRounds; ++round)
            for (HWND window : windows) sum += reinterpret_cast<UINT_PTR>(manager.renderDevice(D3DDEVTYPE_HAL, window).get());
        g_sink = sum;
    });
    double theirs = vexilbench::bestOf(5, [&] {
        UINT_PTR sum = 0;
        for (unsigned round = 0; round < kLookupRounds; ++round) {
            for (HWND window : windows) {
                for (const auto& entry : direct) {
                    if (entry.first == window) {
                        sum += reinterpret_cast<UINT_PTR>(entry.second);
                        break;
                    }
                }
            }
        }
        g_sink = sum;
    });
    vexilbench::report("renderDevice(HAL, window), 64 windows", ours, theirs, "vector<pair<HWND,device*>> scan", 1.5);
    for (HWND window : windows) DestroyWindow(window);
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

void benchAdapterChain(const zeb::String& adapter) {
    HWND window = makeWindow();
    zeb::Array<HWND> windows;
    windows.append(window);
    zeb::Array<zeb::String> names;
    names.append(adapter);
    compareUpAndDown("createSwapChain + cleanup (1 windowed head)", [&] { return adapterChainUpAndDown(names, windows); },
                     [&] { return bareChainUpAndDown(window); }, "Create9/CreateDevice/GetSwapChain/GetDepth/Release");
    DestroyWindow(window);
}

}  // namespace

int main() {
    zeb::LogFactory::setDefaultSinkEnabled(false);
    const zeb::Array<zeb::String>& adapters = enumerateHALDeviceInformation()->deviceNames();
    if (adapters.empty()) {
        vexilbench::note("device_bench", "no HAL adapter");
        return 1;
    }
    benchDeviceLifetime(adapters[0]);
    benchWindowLookup(adapters[0]);
    benchAdapterChain(adapters[0]);
    return 0;
}
