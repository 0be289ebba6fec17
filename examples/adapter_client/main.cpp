// Brings up one device with a swap chain for each display name on the command line (all heads
// when none is given), clears each chain to its own colour, presents it, and shuts down.
#include <VexilDX9/VexilDX9.h>

#include <d3d9.h>
#include <windows.h>

#include <cstdio>

namespace {

HWND makeWindow() {
    static bool registered = false;
    if (!registered) {
        WNDCLASSW wc = {};
        wc.lpfnWndProc = DefWindowProcW;
        wc.hInstance = GetModuleHandleW(nullptr);
        wc.lpszClassName = L"VexilAdapterClient";
        RegisterClassW(&wc);
        registered = true;
    }
    HWND window = CreateWindowExW(0, L"VexilAdapterClient", L"head", WS_OVERLAPPEDWINDOW, 0, 0, 160, 120, nullptr,
                                  nullptr, GetModuleHandleW(nullptr), nullptr);
    ShowWindow(window, SW_SHOWNOACTIVATE);
    return window;
}

zeb::Array<zeb::String> displayNames(const AdapterD3D9& adapter, int argc, char** argv) {
    zeb::Array<zeb::String> names;
    for (int i = 1; i < argc; ++i) names.append(argv[i]);
    for (unsigned head = 0; argc < 2 && head < adapter.headCount(); ++head) {
        D3DADAPTER_IDENTIFIER9 identifier;
        if (adapter.adapterIdentifier(head, identifier)) names.append(identifier.DeviceName);
    }
    return names;
}

bool clearAndPresent(AdapterD3D9& adapter, const zeb::String& name, D3DCOLOR colour) {
    COMPtr<IDirect3DSwapChain9>::pointer chain = adapter.swapChain(name);
    IDirect3DSurface9* back = nullptr;
    if (!chain || FAILED(chain->GetBackBuffer(0, D3DBACKBUFFER_TYPE_MONO, &back))) return false;
    IDirect3DDevice9* device = adapter.device().get();
    device->SetRenderTarget(0, back);
    back->Release();
    const bool ok = SUCCEEDED(device->Clear(0, nullptr, D3DCLEAR_TARGET, colour, 1.0f, 0)) &&
                    SUCCEEDED(chain->Present(nullptr, nullptr, nullptr, nullptr, 0));
    std::printf("%s cleared to %06lX, presented: %s\n", name.getUTF8String().c_str(),
                static_cast<unsigned long>(colour & 0xFFFFFF), ok ? "yes" : "no");
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    zeb::LogFactory::setDefaultSinkEnabled(false);
    bool drawn = false;
    unsigned chains = 0;
    IDirect3DDevice9* watched = nullptr;
    zeb::Array<HWND> windows;
    {
        AdapterD3D9 adapter;
        if (!adapter.initialize()) {
            std::printf("no Direct3D\n");
            return 1;
        }
        const zeb::Array<zeb::String> names = displayNames(adapter, argc, argv);
        // One window per head at most is needed, at least one per name.
        for (unsigned i = 0; i < names.size() || i < adapter.headCount(); ++i) windows.append(makeWindow());
        if (!names.empty() && adapter.createSwapChain(names, windows[0], windows, true, D3DDEVTYPE_HAL)) {
            watched = adapter.device().get();
            watched->AddRef();
            drawn = true;
            for (const zeb::String& name : adapter.activeChainOSLocator())
                drawn = clearAndPresent(adapter, name, D3DCOLOR_XRGB(40 + 80 * chains++, 30, 200)) && drawn;
        }
    }
    // The adapter is gone: the reference taken above must be the last one.
    const ULONG left = watched ? watched->Release() : 1;
    for (HWND window : windows) DestroyWindow(window);
    const bool ok = drawn && left == 0;
    if (ok) std::printf("%u display(s) presented, shut down cleanly\n", chains);
    else std::printf("adapter client failed\n");
    return ok ? 0 : 1;
}
