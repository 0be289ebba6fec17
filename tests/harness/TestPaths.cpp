#include "TestPaths.h"

#include <windows.h>

#include <cstdlib>

namespace vexiltest {

bool fileExists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string sourcePath(const std::string& relative) {
    // ctest names the source tree; a test program started by hand falls back on the tree it was
    // built from.
    const char* root = std::getenv("VEXIL_SOURCE_DIR");
    std::string path = std::string(root ? root : VEXIL_BUILT_FROM) + "/" + relative;
    for (char& c : path)
        if (c == '/') c = '\\';
    // Unix absolute paths of the build host are reached through Wine's Z: drive.
    return path[0] == '\\' ? "Z:" + path : path;
}

std::string samplesDir() {
    std::string dir = sourcePath("../shared/samples");
    return fileExists(dir + "\\README.md") ? dir : std::string();
}

std::string outputDir() {
    CreateDirectoryA("test-output", nullptr);
    return "test-output";
}

}  // namespace vexiltest
