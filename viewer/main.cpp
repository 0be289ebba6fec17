// vexil-view: shows an X-file scene through VexilDX9, in a window or headless into PNG pictures.
#include "Modes.h"
#include "Session.h"

#include <shellapi.h>
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

std::vector<std::string> commandLineArguments() {
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i) arguments.push_back(vexilview::narrow(wide[i]));
    LocalFree(wide);
    return arguments;
}

}  // namespace

int main() {
    const std::vector<std::string> arguments = commandLineArguments();
    for (const std::string& a : arguments) {
        if (a == "--help" || a == "-h") {
            std::fputs(vexilview::kUsage, stdout);
            return vexilview::kExitOk;
        }
    }
    vexilview::Options options;
    const std::string problem = vexilview::parseOptions(arguments, options);
    if (!problem.empty()) {
        vexilview::complain(problem);
        std::fputs(vexilview::kUsage, stderr);
        return vexilview::kExitRefused;
    }
    if (!options.gallery.empty()) return vexilview::runGallery(options);
    return options.headless() || options.info ? vexilview::runHeadless(options) : vexilview::runWindow(options);
}
