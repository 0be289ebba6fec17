// Headless rendering of the bundled scene at 640x480: the viewer's whole frame (animation step,
// camera, render states, drawing, read-back) against the scene's draw calls alone, with and
// without reading the picture back.
#include "BenchTimer.h"

#include <Device.h>
#include <FrameRenderer.h>
#include <Session.h>

#include <cstdio>

namespace {

const unsigned kWidth = 640, kHeight = 480;
const int kFrames = 30;

std::string bundledScene() {
    const std::wstring path = vexilview::programDirectory() + L"scene\\walker.x";
    char narrow[MAX_PATH * 4] = {};
    WideCharToMultiByte(CP_UTF8, 0, path.c_str(), -1, narrow, sizeof narrow, nullptr, nullptr);
    return narrow;
}

}  // namespace

int main() {
    vexilview::Options options;
    options.scene = bundledScene();
    options.width = kWidth;
    options.height = kHeight;
    HWND window = vexilview::createViewerWindow(64, 64, false, nullptr);
    vexilview::Session session(options);
    if (session.open(window, false) != vexilview::kExitOk) return 1;
    IDirect3DDevice9* device = session.device().get();
    vexilview::OffscreenTarget target;
    if (FAILED(target.create(device, kWidth, kHeight))) return 1;
    target.bind(device);
    vexilsupport::Image picture;

    auto viewerFrames = [&](bool readBack) {
        for (int i = 0; i < kFrames; ++i) {
            session.scene().step(1.0 / 30.0);
            session.scene().placeCamera(vexilview::Orbit());
            session.renderer().draw(session.device().holder(), vexilview::SkinPath::Fixed, true);
            if (readBack) target.readBack(device, picture);
        }
    };
    auto drawCallsAlone = [&](bool readBack) {
        for (int i = 0; i < kFrames; ++i) {
            device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1.0f, 0);
            device->BeginScene();
            session.scene().render(device, true);
            device->EndScene();
            if (readBack) target.readBack(device, picture);
        }
    };
    viewerFrames(true);  // warm-up: textures, shaders, caches
    drawCallsAlone(true);
    const double ours = vexilbench::bestOf(3, [&] { viewerFrames(true); }) / kFrames;
    const double reference = vexilbench::bestOf(3, [&] { drawCallsAlone(true); }) / kFrames;
    vexilbench::report("vexil-view frame, bundled scene 640x480", ours, reference, "Clear + render + read-back", 1.2);
    const double oursSubmit = vexilbench::bestOf(3, [&] { viewerFrames(false); }) / kFrames;
    const double referenceSubmit = vexilbench::bestOf(3, [&] { drawCallsAlone(false); }) / kFrames;
    vexilbench::report("vexil-view frame without read-back", oursSubmit, referenceSubmit, "Clear + render", 1.2);
    std::printf("vexil-view headless: %.1f frames a second at %ux%u (bundled scene, %u triangles)\n", 1.0 / ours,
                kWidth, kHeight, session.scene().triangleCount());
    DestroyWindow(window);
    return 0;
}
