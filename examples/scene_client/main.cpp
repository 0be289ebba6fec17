// The smallest VexilDX9 scene program: a device for a window, an X file loaded as a scene, and a
// loop that animates and draws it. Usage: scene_client SCENE.x
#include <VexilDX9/VexilDX9.h>

#include <d3d9.h>
#include <windows.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::printf("usage: scene_client SCENE.x\n");
        return 2;
    }
    zeb::LogFactory::setPriority(4);  // failures only

    // 1. A window and a windowed device for it, on the first HAL adapter.
    HWND window = CreateWindowExW(0, L"STATIC", L"scene", WS_OVERLAPPEDWINDOW, 0, 0, 320, 240, nullptr, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
    VexilDX9::SwapChainParameterDX9 chain;
    chain.backBufferCount = 1;
    chain.windowed = true;
    chain.depthStencil = true;
    chain.window = window;
    VexilDX9::RenderDeviceParameterDX9 parameter;
    parameter.adapterId = enumerateHALDeviceInformation()->deviceNames()[0];
    parameter.swapChains.append(chain);
    zeb::Array<VexilDX9::RenderDeviceParameterDX9> parameters;
    parameters.append(parameter);
    VexilDX9::RenderDeviceManagerDX9 manager;
    if (manager.createRenderDevice(D3DDEVTYPE_HAL, parameters, window) == 0) return 1;
    IDirect3DDevice9* device = manager.renderDevice(D3DDEVTYPE_HAL, window)->d3dDevice().get();

    // 2. The scene: textures are looked up in the X file's folder; no k2m frame list.
    std::string file = argv[1];
    zeb::String textureDirectory(file.substr(0, file.find_last_of("\\/")).c_str());
    VirtualRealityDX9 scene;
    if (!scene.loadVirtualReality(textureDirectory, zeb::String(file.c_str()), device, zeb::Array<zeb::String>())) {
        std::printf("cannot load %s\n", file.c_str());
        return 2;
    }
    scene.setupAnimation(device);  // the scene's lights and projection

    // 3. Each frame: advance the animation (whole seconds here; the scene follows "CameraDummy"),
    //    then draw between BeginScene and EndScene and present.
    unsigned frames = 0;
    for (; frames < 10; ++frames) {
        scene.animate(1);
        device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, D3DCOLOR_XRGB(40, 40, 60), 1.0f, 0);
        device->BeginScene();
        const bool drawn = scene.render(device, true);
        device->EndScene();
        device->Present(nullptr, nullptr, nullptr, nullptr);
        if (!drawn) break;
    }
    std::printf("scene drawn %u times\n", frames);
    DestroyWindow(window);
    return frames == 10 ? 0 : 1;
}
