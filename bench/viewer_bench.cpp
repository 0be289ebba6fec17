// Headless rendering of the bundled scene at 640x480: the viewer's whole frame (animation step,
// camera, render states, drawing, read-back) against the scene's draw calls alone, and the
// viewer's own work a frame (animation step and camera) against those draw calls.
#include "BenchTimer.h"

#include <Device.h>
#include <FrameRenderer.h>
#include <Session.h>

#include <algorithm>
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

    auto ownWork = [&] {
        session.scene().step(1.0 / 30.0);
        session.scene().placeCamera(vexilview::Orbit());
    };
    auto viewerFrames = [&] {
        for (int i = 0; i < kFrames; ++i) {
            ownWork();
            session.renderer().draw(session.device().holder(), vexilview::SkinPath::Fixed, true);
            target.readBack(device, picture);
        }
    };
    auto drawCallsAlone = [&] {
        for (int i = 0; i < kFrames; ++i) {
            device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1.0f, 0);
            device->BeginScene();
            session.scene().render(device, true);
            device->EndScene();
            target.readBack(device, picture);
        }
    };
    viewerFrames();  // warm-up: textures, shaders, caches
    drawCallsAlone();
    // Interleaved, so that the load of a shared machine falls on both alike.
    double ours = 1e30, reference = 1e30;
    for (int run = 0; run < 5; ++run) {
        ours = std::min(ours, vexilbench::bestOf(1, viewerFrames) / kFrames);
        reference = std::min(reference, vexilbench::bestOf(1, drawCallsAlone) / kFrames);
    }
    vexilbench::report("vexil-view frame, bundled scene 640x480", ours, reference, "Clear + render + read-back", 1.2);
    const double own = vexilbench::bestOf(3, [&] { for (int i = 0; i < kFrames; ++i) ownWork(); }) / kFrames;
    vexilbench::report("vexil-view own work a frame (step, camera)", own, reference, "the scene's draw calls", 0.05);
    std::printf("vexil-view headless: %.1f frames a second at %ux%u (bundled scene, %u triangles)\n", 1.0 / ours,
                kWidth, kHeight, session.scene().triangleCount());
    DestroyWindow(window);
    return 0;
}
