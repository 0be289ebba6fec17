#pragma once
// What both modes share: the device, the loaded scene and its renderer, set up from the options.
#include "Device.h"
#include "FrameRenderer.h"
#include "Options.h"
#include "SceneReport.h"
#include "ViewerScene.h"

#include <string>

namespace vexilview {

// Exit codes: 2 for what the user handed in (arguments, files, sizes), 1 when the machine fails.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitRefused = 2 };

class Session {
public:
    explicit Session(const Options& options) : m_options(options), m_renderer(m_scene) {}

    // Frame list, device on window, scene and skin path; prints what is wrong and returns the
    // exit code when something is.
    ExitCode open(HWND window, bool depthStencil);
    // Before a device reset: the effects' and the scene's device resources, and every light
    // switched off (Wine never frees the slot of a light left on through a reset).
    void releaseForReset();
    // After a device reset: the scene's render resources and the effects again.
    bool reopen();

    const Options& options() const { return m_options; }
    ViewerDevice& device() { return m_device; }
    ViewerScene& scene() { return m_scene; }
    const ViewerScene& scene() const { return m_scene; }
    FrameRenderer& renderer() { return m_renderer; }
    bool textures() const { return m_textures; }
    double loadMilliseconds() const { return m_loadMilliseconds; }
    // What the file holds and the warnings about it, as loaded.
    const SceneReport& report() const { return m_report; }
    std::string describe() const;  // one line: file, triangles, animation, camera

private:
    ExitCode resolveTextures();
    ExitCode loadScene();
    ExitCode loadShading();  // the lighting and shadow effects the options ask for
    ExitCode applyAnimationOptions();

    Options m_options;
    ViewerDevice m_device;
    ViewerScene m_scene;
    FrameRenderer m_renderer;
    zeb::Array<zeb::String> m_frameList;
    zeb::String m_textureRoot;
    bool m_textures = true;
    double m_loadMilliseconds = 0.0;
    SceneReport m_report;
};

// Messages to standard error, prefixed with the program name.
void complain(const std::string& message);
void warn(const std::string& message);
double secondsNow();
std::wstring widen(const std::string& utf8);
std::string narrow(const std::wstring& wide);
// Files and folders, by the operating system's names.
std::wstring fullPath(const std::string& path);
bool isDirectory(const std::wstring& path);
bool isFile(const std::wstring& path);
bool createDirectories(const std::wstring& path);  // and every folder above; true when it is there

}  // namespace vexilview
