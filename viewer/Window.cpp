// Window mode: the scene animated in real time; drag to orbit, wheel to zoom, space pauses,
// [ and ] step through the animation sets, S switches the skin path, T textures, L lighting,
// Esc quits. The title shows the animation set and the frame time.
#include "Modes.h"
#include "Session.h"

#include <windowsx.h>

#include <cstdio>
#include <string>

namespace vexilview {

namespace {

const float kOrbitPerPixel = 0.01f;
const float kPitchLimit = 1.4f;

struct Controls {
    Orbit orbit;
    bool paused = false;
    bool dragging = false;
    POINT last = {};
    SkinPath skin = SkinPath::Fixed;
    bool textures = true;
    bool blinnPhongAsked = false;
    int setStep = 0;  // animation sets to move by ([ back, ] on) before the next frame
};

Controls* g_controls = nullptr;  // the window procedure's view of the running loop

void onKey(Controls& c, WPARAM key) {
    switch (key) {
    case VK_SPACE: c.paused = !c.paused; break;
    case 'S': c.skin = c.skin == SkinPath::Fixed ? SkinPath::Effect : SkinPath::Fixed; break;
    case 'T': c.textures = !c.textures; break;
    case 'L': c.blinnPhongAsked = !c.blinnPhongAsked; break;
    case VK_ESCAPE: PostQuitMessage(0); break;
    default: break;
    }
}

void onDrag(Controls& c, LPARAM position) {
    const POINT now = {GET_X_LPARAM(position), GET_Y_LPARAM(position)};
    c.orbit.yaw += kOrbitPerPixel * static_cast<float>(now.x - c.last.x);
    c.orbit.pitch += kOrbitPerPixel * static_cast<float>(now.y - c.last.y);
    c.orbit.pitch = c.orbit.pitch > kPitchLimit ? kPitchLimit : c.orbit.pitch < -kPitchLimit ? -kPitchLimit : c.orbit.pitch;
    c.last = now;
}

LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM w, LPARAM l) {
    Controls* c = g_controls;
    switch (message) {
    case WM_DESTROY: PostQuitMessage(0); return 0;
    case WM_KEYDOWN: if (c) onKey(*c, w); return 0;
    case WM_CHAR: if (c) c->setStep += w == ']' ? 1 : w == '[' ? -1 : 0; return 0;
    case WM_LBUTTONDOWN:
        if (c) { c->dragging = true; c->last = {GET_X_LPARAM(l), GET_Y_LPARAM(l)}; SetCapture(window); }
        return 0;
    case WM_LBUTTONUP: if (c) c->dragging = false; ReleaseCapture(); return 0;
    case WM_MOUSEMOVE: if (c && c->dragging) onDrag(*c, l); return 0;
    case WM_MOUSEWHEEL:
        if (c) c->orbit.zoom *= GET_WHEEL_DELTA_WPARAM(w) > 0 ? 0.9f : 1.0f / 0.9f;
        return 0;
    default: return DefWindowProcW(window, message, w, l);
    }
}

// The lighting effect needs the device it was made for: L switches to it only when the viewer
// was started with it.
const char* lightingStatus(Session& session, const Controls& c) {
    if (!c.blinnPhongAsked) return "fixed";
    return session.renderer().lit().hasLighting() ? "blinn-phong" : "blinn-phong (start with --lighting blinn-phong: fixed)";
}

std::string animationStatus(const Session& session) {
    const Playback& playback = session.scene().playback();
    if (playback.sets().empty()) return "no animation";
    return "'" + playback.sets()[playback.current()].name + "' (" + std::to_string(playback.current() + 1) + " of " +
           std::to_string(playback.sets().size()) + ", [ ] for others)";
}

void showStatus(HWND window, Session& session, const Controls& c, double frameSeconds) {
    wchar_t title[480];
    swprintf(title, 480, L"vexil-view - %hs - %hs - %.2f ms a frame - %hs skin, textures %hs, %hs lighting%hs%hs",
             session.options().scene.c_str(), animationStatus(session).c_str(), frameSeconds * 1000.0,
             c.skin == SkinPath::Fixed ? "fixed-function" : "effect", c.textures ? "on" : "off",
             lightingStatus(session, c), session.options().shadows ? ", shadows" : "", c.paused ? " - paused" : "");
    SetWindowTextW(window, title);
}

// A lost device is reset once it can be, and the scene's resources made again; false when the
// device can no longer be used.
bool recoverDevice(Session& session) {
    HRESULT state = D3D_OK;
    session.releaseForReset();
    if (!session.device().reset(state)) return state == D3DERR_DEVICELOST || state == D3D_OK;
    return session.reopen();
}

// The effect path is loaded when first asked for; without it the fixed-function path stays.
void loadSkinEffectWhenAsked(Session& session, Controls& controls) {
    if (controls.skin != SkinPath::Effect || session.renderer().hasSkinEffect()) return;
    std::string problem;
    if (!session.renderer().useSkinEffect(session.device().holder(), problem)) {
        warn(problem);
        controls.skin = SkinPath::Fixed;
    }
}

void stepAnimationSets(Session& session, Controls& controls) {
    const int count = static_cast<int>(session.scene().playback().sets().size());
    if (controls.setStep != 0 && count > 1) {
        const int next = ((static_cast<int>(session.scene().playback().current()) + controls.setStep) % count + count) % count;
        session.scene().selectAnimation(static_cast<unsigned>(next));
    }
    controls.setStep = 0;
}

// One frame on the window; false when the device is lost for good.
bool drawAndPresent(Session& session, Controls& controls, double seconds) {
    loadSkinEffectWhenAsked(session, controls);
    stepAnimationSets(session, controls);
    session.scene().step(seconds);
    session.scene().placeCamera(controls.orbit);
    session.renderer().setLighting(controls.blinnPhongAsked ? Lighting::BlinnPhong : Lighting::Fixed,
                                   session.options().shadows);
    session.renderer().draw(session.device().holder(), controls.skin, controls.textures);
    return session.device().get()->Present(nullptr, nullptr, nullptr, nullptr) != D3DERR_DEVICELOST ||
           recoverDevice(session);
}

}  // namespace

int runWindow(const Options& options) {
    HWND window = createViewerWindow(options.width, options.height, true, windowProcedure);
    Session session(options);
    const ExitCode opened = session.open(window, true);
    if (opened != kExitOk) {
        DestroyWindow(window);
        return opened;
    }
    std::printf("vexil-view: %s, loaded in %.1f ms\n", session.describe().c_str(), session.loadMilliseconds());
    Controls controls;
    controls.skin = session.renderer().hasSkinEffect() ? options.skin : SkinPath::Fixed;
    controls.textures = session.textures();
    controls.blinnPhongAsked = options.lighting == Lighting::BlinnPhong;
    g_controls = &controls;
    double last = secondsNow(), lastTitle = 0.0;
    int code = kExitOk;
    for (MSG message = {};;) {
        if (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) break;
            TranslateMessage(&message);
            DispatchMessageW(&message);
            continue;
        }
        const double now = secondsNow();
        if (!drawAndPresent(session, controls, controls.paused ? 0.0 : now - last)) {
            complain("the device was lost and could not be brought back");
            code = kExitFailure;
            break;
        }
        if (now - lastTitle > 0.5) {
            showStatus(window, session, controls, secondsNow() - now);
            lastTitle = now;
        }
        last = now;
    }
    g_controls = nullptr;
    if (IsWindow(window)) DestroyWindow(window);
    return code;
}

}  // namespace vexilview
