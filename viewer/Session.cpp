#include "Session.h"

#include <zeb/Exception.h>
#include <zeb/Logger.h>

#include <cstdio>
#include <vector>

namespace vexilview {

namespace {

const int kQuiet = 5;  // above every priority the library logs at

}  // namespace

void complain(const std::string& message) { std::fprintf(stderr, "vexil-view: %s\n", message.c_str()); }
void warn(const std::string& message) { std::fprintf(stderr, "vexil-view: warning: %s\n", message.c_str()); }

double secondsNow() {
    static LARGE_INTEGER frequency = {};
    if (!frequency.QuadPart) QueryPerformanceFrequency(&frequency);
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

std::wstring fullPath(const std::string& path) {
    const std::wstring wide = widen(path);
    wchar_t buffer[MAX_PATH * 4] = {};
    const DWORD size = GetFullPathNameW(wide.c_str(), MAX_PATH * 4, buffer, nullptr);
    return size > 0 && size < MAX_PATH * 4 ? std::wstring(buffer) : wide;
}

bool isDirectory(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool isFile(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool createDirectories(const std::wstring& path) {
    for (size_t at = path.find_first_of(L"\\/", 3); at != std::wstring::npos; at = path.find_first_of(L"\\/", at + 1))
        CreateDirectoryW(path.substr(0, at).c_str(), nullptr);
    CreateDirectoryW(path.c_str(), nullptr);
    return isDirectory(path);
}

std::string narrow(const std::wstring& wide) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::vector<char> text(static_cast<size_t>(size > 0 ? size : 1));
    WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, text.data(), size, nullptr, nullptr);
    return text.data();
}

std::wstring widen(const std::string& utf8) {
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, nullptr, 0);
    std::vector<wchar_t> wide(static_cast<size_t>(size > 0 ? size : 1));
    MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, wide.data(), size);
    return wide.data();
}

ExitCode Session::open(HWND window, bool depthStencil) {
    // The viewer reports what the library's messages would tell a user (missing textures, skins it
    // cannot build, meshes it skips); --verbose shows the library's own lines.
    zeb::LogFactory::setPriority(m_options.verbose ? 1 : kQuiet);
    if (!m_options.k2mFile.empty()) {
        std::vector<std::string> entries;
        const std::string problem = readFrameList(m_options.k2mFile, entries);
        if (!problem.empty()) {
            complain(problem);
            return kExitRefused;
        }
        for (const std::string& entry : entries) m_frameList.append(zeb::String::fromUTF8(entry.c_str()));
    }
    std::string problem;
    if (!m_device.create(window, depthStencil, m_options.lighting == Lighting::BlinnPhong, problem)) {
        complain(problem);
        return kExitFailure;
    }
    if (!m_device.supportsSize(m_options.width, m_options.height, problem)) {
        complain(problem);
        return kExitRefused;
    }
    const ExitCode textures = resolveTextures();
    return textures != kExitOk ? textures : loadScene();
}

ExitCode Session::resolveTextures() {
    m_textures = m_options.textures;
    std::wstring root;
    if (m_options.textureDirectory.empty()) {
        const std::wstring scene = fullPath(m_options.scene);
        root = scene.substr(0, scene.find_last_of(L"\\/"));
    } else {
        root = fullPath(m_options.textureDirectory);
        if (!isDirectory(root)) {
            warn("texture directory " + m_options.textureDirectory + " does not exist: drawing untextured");
            m_textures = false;
        }
    }
    m_textureRoot = zeb::String(root.c_str());
    return kExitOk;
}

ExitCode Session::loadScene() {
    const std::wstring file = fullPath(m_options.scene);
    if (!isFile(file)) {
        complain("cannot open " + m_options.scene + ": no such file");
        return kExitRefused;
    }
    const double start = secondsNow();
    try {
        if (!m_scene.loadVirtualReality(m_textureRoot, zeb::String(file.c_str()), m_device.get(), m_frameList)) {
            complain(m_options.scene + " is not a loadable X file (damaged or not an X file)");
            return kExitRefused;
        }
    } catch (const zeb::IndexOutOfBounds&) {
        complain(m_options.scene + ": a skinned mesh could not be built and no k2m frame list covers it (--k2m)");
        return kExitRefused;
    } catch (const zeb::Exception& e) {
        complain(m_options.scene + " could not be prepared: " + e.what());
        return kExitRefused;
    }
    m_loadMilliseconds = (secondsNow() - start) * 1000.0;
    m_scene.prepare(m_device.get(), static_cast<float>(m_options.width) / static_cast<float>(m_options.height));
    const ExitCode animation = applyAnimationOptions();
    if (animation != kExitOk) return animation;
    m_report = describeScene(m_scene, m_textures);
    if (!m_options.info)  // --info lists them itself
        for (const std::string& warning : m_report.warnings) warn(warning);
    if (m_options.skin == SkinPath::Effect) {
        std::string problem;
        if (!m_renderer.useSkinEffect(m_device.holder(), problem)) {
            complain(problem);
            return kExitFailure;
        }
    }
    const ExitCode shading = loadShading();
    if (shading != kExitOk) return shading;
    if (m_options.verbose) zeb::LogFactory::setPriority(4);  // the per-frame progress lines stay quiet
    return kExitOk;
}

ExitCode Session::applyAnimationOptions() {
    Playback& playback = m_scene.playback();
    playback.setOnce(m_options.once);
    playback.setSpeed(m_options.speed);
    if (m_options.animation.empty()) return kExitOk;
    const int index = playback.find(m_options.animation);
    if (index < 0) {
        std::string names;
        for (const AnimationSetFacts& set : playback.sets()) names += (names.empty() ? "'" : ", '") + set.name + "'";
        complain("no animation set '" + m_options.animation + "' in " + m_options.scene +
                 (names.empty() ? " (it has none)" : " (it has " + names + ")"));
        return kExitRefused;
    }
    m_scene.selectAnimation(static_cast<unsigned>(index));
    return kExitOk;
}

ExitCode Session::loadShading() {
    std::string problem;
    if (m_options.lighting == Lighting::BlinnPhong && !m_renderer.lit().loadLighting(*m_device.adapter(), problem)) {
        complain(problem);
        return kExitFailure;
    }
    if (m_options.shadows && !m_renderer.lit().loadShadows(m_device.holder(), problem)) {
        complain(problem);
        return kExitFailure;
    }
    m_renderer.setLighting(m_options.lighting, m_options.shadows);
    return kExitOk;
}

void Session::releaseForReset() {
    m_renderer.lit().releaseDeviceResources();
    m_renderer.switchOffKeyLight(m_device.get());
    m_scene.cleanup();  // also switches off the scene's own lights
}

bool Session::reopen() {
    if (!m_renderer.lit().restoreDeviceResources(m_device.holder())) return false;
    const unsigned animation = m_scene.playback().current();
    if (!m_scene.reallocateRenderResources(m_device.holder(), m_frameList)) return false;
    m_scene.prepare(m_device.get(), static_cast<float>(m_options.width) / static_cast<float>(m_options.height));
    m_scene.selectAnimation(animation);  // the playback keeps its speed and --once
    std::string problem;
    return m_options.skin != SkinPath::Effect || m_renderer.useSkinEffect(m_device.holder(), problem);
}

std::string Session::describe() const {
    std::string animation = "not animated";
    const Playback& playback = m_scene.playback();
    if (!playback.sets().empty()) {
        const AnimationSetFacts& set = playback.sets()[playback.current()];
        char text[96];
        std::snprintf(text, sizeof text, "%.2f s, %s", set.seconds, m_options.once ? "once" : "looped");
        animation = "animation set '" + set.name + "' (" + text + ")";
    }
    char line[256];
    std::snprintf(line, sizeof line, "%u triangles, %s, %s", m_scene.triangleCount(), animation.c_str(),
                  m_scene.hasCameraFrame() ? "camera on \"CameraDummy\"" : "camera framing the whole run");
    return m_options.scene + ": " + line;
}

}  // namespace vexilview
