#pragma once
// A 64x64 windowed HAL device on a window of its own, for the benchmark programs that draw.
#include <d3d9.h>
#include <windows.h>

namespace vexilbench {

struct BenchDevice {
    HWND window = nullptr;
    IDirect3D9* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;

    bool create(DWORD behaviour = D3DCREATE_SOFTWARE_VERTEXPROCESSING) {
        window = CreateWindowA("STATIC", "vexil bench", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr, nullptr,
                               nullptr);
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        if (!window || !d3d) return false;
        D3DPRESENT_PARAMETERS parameters = {};
        parameters.Windowed = TRUE;
        parameters.SwapEffect = D3DSWAPEFFECT_DISCARD;
        parameters.BackBufferWidth = 64;
        parameters.BackBufferHeight = 64;
        parameters.BackBufferFormat = D3DFMT_X8R8G8B8;
        parameters.hDeviceWindow = window;
        return SUCCEEDED(d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, window, behaviour, &parameters, &device));
    }
    ~BenchDevice() {
        if (device) device->Release();
        if (d3d) d3d->Release();
        if (window) DestroyWindow(window);
    }
};

}  // namespace vexilbench
