#pragma once
#include <string>

namespace vexiltest {

// Windows path of a file of the source tree (relative to the repository root).
std::string sourcePath(const std::string& relative);
// Windows path of the third-party samples folder (../shared/samples beside the repository),
// or "" when it is absent.
std::string samplesDir();
// Folder for pictures and files a test leaves behind (created on demand).
std::string outputDir();
bool fileExists(const std::string& path);

}  // namespace vexiltest

// Skips the running test, saying why, when the third-party samples are not there.
#define VEXIL_REQUIRE_SAMPLES()                                                              \
    do {                                                                                     \
        if (::vexiltest::samplesDir().empty())                                               \
            GTEST_SKIP() << "../shared/samples is absent: third-party sample check skipped"; \
    } while (0)
