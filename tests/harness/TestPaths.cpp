#include "TestPaths.h"

#include <windows.h>

#include <cstdlib>

namespace vexiltest {

namespace {
std::string toWindows(std::string path) {
    for (char& c : path)
        if (c == '/') c = '\\';
    // Unix absolute paths of the build host are reached through Wine's Z: drive.
    if (!path.empty() && path[0] == '\\') path = "Z:" + path;
    return path;
}
}  // namespace

bool fileExists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string sourcePath(const std::string& relative) {
    const char* root = std::getenv("VEXIL_SOURCE_DIR");
    std::string base = root ? root : "..\\..";
    return toWindows(base + "/" + relative);
}

std::string samplesDir() {
    std::string dir = sourcePath("../shared/samples");
    return fileExists(dir + "\\README.md") ? dir : std::string();
}

std::string outputDir() {
    std::string dir = "test-output";
    CreateDirectoryA(dir.c_str(), nullptr);
    return dir;
}

}  // namespace vexiltest
