// The demo: brings up a Direct3D 9 device on a hidden window, clears it to a colour, reads the
// colour back and writes the picture as a PNG.
#include <VexilDX9/VexilDX9.h>
#include <Png.h>

#include <d3d9.h>
#include <windows.h>

#include <cstdio>

namespace {

ZEB_FILE_LOGGER(demoLogger, "VexilDX9.demo")

const unsigned kWidth = 320;
const unsigned kHeight = 240;
const D3DCOLOR kColour = D3DCOLOR_XRGB(40, 96, 168);

HWND createHiddenWindow() {
    WNDCLASSW wc = {};
    wc.lpfnWndProc = DefWindowProcW;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"VexilDemo";
    RegisterClassW(&wc);
    return CreateWindowExW(0, wc.lpszClassName, L"VexilDX9 demo", WS_OVERLAPPEDWINDOW, 0, 0, kWidth, kHeight,
                           nullptr, nullptr, wc.hInstance, nullptr);
}

bool readBack(IDirect3DDevice9* device, vexilsupport::Image& image) {
    COMPtr<IDirect3DSurface9>::pointer backBuffer, copy;
    HRESULT hr = device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, backBuffer.receive());
    if (SUCCEEDED(hr))
        hr = device->CreateOffscreenPlainSurface(kWidth, kHeight, D3DFMT_X8R8G8B8, D3DPOOL_SYSTEMMEM, copy.receive(), nullptr);
    if (SUCCEEDED(hr)) hr = device->GetRenderTargetData(backBuffer.get(), copy.get());
    D3DLOCKED_RECT locked;
    if (SUCCEEDED(hr)) hr = copy->LockRect(&locked, nullptr, D3DLOCK_READONLY);
    if (FAILED(hr)) {
        VexilDX9::logD3DFunction(demoLogger, "reading the back buffer", hr, true);
        return false;
    }
    image.width = kWidth;
    image.height = kHeight;
    image.pixels.resize(kWidth * kHeight);
    for (unsigned y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; ++x)
            image.pixels[y * kWidth + x] = static_cast<const D3DCOLOR*>(locked.pBits)[y * (locked.Pitch / 4) + x];
    copy->UnlockRect();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const char* output = argc > 1 ? argv[1] : "demo.png";
    COMPtr<IDirect3D9>::pointer d3d(Direct3DCreate9(D3D_SDK_VERSION));
    if (!d3d) {
        std::fprintf(stderr, "Direct3D 9 is not available\n");
        return 1;
    }
    HWND window = createHiddenWindow();
    D3DPRESENT_PARAMETERS pp = {};
    pp.Windowed = TRUE;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.BackBufferWidth = kWidth;
    pp.BackBufferHeight = kHeight;
    pp.hDeviceWindow = window;
    COMPtr<IDirect3DDevice9>::pointer device;
    HRESULT hr = d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, window, D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp,
                                   device.receive());
    if (FAILED(hr)) {
        VexilDX9::logD3DFunction(demoLogger, "IDirect3D9::CreateDevice", hr, true);
        return 1;
    }
    device->Clear(0, nullptr, D3DCLEAR_TARGET, kColour, 1.0f, 0);
    vexilsupport::Image image;
    if (!readBack(device.get(), image)) return 1;
    D3DCOLOR centre = image.at(kWidth / 2, kHeight / 2) & 0xFFFFFF;
    std::printf("cleared to %06X, read back %06X\n", static_cast<unsigned>(kColour & 0xFFFFFF), static_cast<unsigned>(centre));
    if (!vexilsupport::writePng(output, image)) {
        std::fprintf(stderr, "cannot write %s\n", output);
        return 1;
    }
    device.reset();
    d3d.reset();
    DestroyWindow(window);
    return centre == (kColour & 0xFFFFFF) ? 0 : 1;
}
