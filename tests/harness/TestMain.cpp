#include <gtest/gtest.h>
#include <zeb/Logger.h>

#include <windows.h>

#include <cstdlib>
#include <string>

// The library opens its own effect files by relative name, and the tests their fixtures beside
// the program: run in the program's folder wherever it was started from.
static void enterProgramFolder() {
    char path[MAX_PATH] = {};
    std::string program(path, GetModuleFileNameA(nullptr, path, MAX_PATH));
    SetCurrentDirectoryA(program.substr(0, program.find_last_of("\\/")).c_str());
}

// Log lines go to the captures of the tests; set VEXIL_TEST_LOG=1 to see them on stderr too.
int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    enterProgramFolder();
    const char* show = std::getenv("VEXIL_TEST_LOG");
    zeb::LogFactory::setDefaultSinkEnabled(show && *show == '1');
    return RUN_ALL_TESTS();
}
