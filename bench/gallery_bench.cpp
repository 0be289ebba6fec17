// The gallery of the third-party samples (every X file of ../shared/samples): `vexil-view --gallery`
// as a user runs it, against what a user would do without it, the headless viewer run on each
// file one after the other with the same pictures asked for.
#include "BenchTimer.h"

#include <Gallery.h>
#include <Session.h>

#include <windows.h>

#include <string>

namespace {

// Runs a command line to its end; false when it cannot be started.
bool run(std::wstring command) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                        &process))
        return false;
    WaitForSingleObject(process.hProcess, INFINITE);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return true;
}

std::wstring quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

}  // namespace

int main() {
    std::wstring samples = vexilview::fullPath(vexilbench::samplePath(""));
    if (!samples.empty() && samples.back() == L'\\') samples.pop_back();
    const std::vector<vexilview::GalleryEntry> files = vexilview::galleryFiles(samples);
    const std::string what = "vexil-view --gallery, the " + std::to_string(files.size()) + " X files of ../shared/samples";
    if (files.empty()) {
        vexilbench::note(what.c_str(), "../shared/samples is absent");
        return 0;
    }
    const std::wstring viewer = quoted(vexilview::widen(vexilbench::besideProgram("vexil-view.exe")));
    const std::wstring out = vexilview::widen(vexilbench::besideProgram("bench-gallery"));
    // The gallery's own defaults: 24 frames at 8 a second, 240x180.
    const std::wstring pictures = L" --frames 24 --fps 8 --size 240x180 --out ";
    const double gallery = vexilbench::bestOf(1, [&] {
        run(viewer + L" --gallery " + quoted(samples) + L" --out " + quoted(out + L"\\gallery") + L" --timeout 120");
    });
    const double oneByOne = vexilbench::bestOf(1, [&] {
        for (const vexilview::GalleryEntry& file : files) run(viewer + L" " + quoted(file.file) + pictures + quoted(out + L"\\one"));
    });
    vexilbench::report(what.c_str(), gallery, oneByOne, "vexil-view run on each file in turn", 1.0);
    return 0;
}
