#include "Gallery.h"

#include "Modes.h"
#include "Session.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace vexilview {

namespace {

const char* const kCardFile = "card.txt";
const char* const kPreviewFile = "animation.png";

// ---------------------------------------------------------------------------------------------
bool isXFile(const std::wstring& name) {
    return name.size() > 2 && name[name.size() - 2] == L'.' && (name.back() == L'x' || name.back() == L'X');
}

void findXFiles(const std::wstring& root, const std::wstring& relative, std::vector<GalleryEntry>& entries) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((root + L"\\" + relative + L"*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") continue;
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            findXFiles(root, relative + name + L"\\", entries);
        } else if (isXFile(name)) {
            GalleryEntry entry;
            entry.file = root + L"\\" + relative + name;
            entry.path = narrow(relative + name);
            std::replace(entry.path.begin(), entry.path.end(), '\\', '/');
            entry.bytes = (static_cast<unsigned long long>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
            entries.push_back(entry);
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
}

// ---------------------------------------------------------------------------------------------
// One process a file: vexil-view itself in card mode, its output in files of its card folder.

std::wstring quotedArgument(const std::wstring& text) { return L"\"" + text + L"\""; }

std::wstring cardCommand(const Options& o, const GalleryEntry& entry, const std::wstring& folder) {
    wchar_t program[MAX_PATH * 4] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH * 4);
    std::wstring command = quotedArgument(program) + L" " + quotedArgument(entry.file) + L" --card --out " +
                           quotedArgument(folder) + L" --frames " + std::to_wstring(o.frames) + L" --fps " +
                           widen(std::to_string(o.fps)) + L" --size " + std::to_wstring(o.width) + L"x" +
                           std::to_wstring(o.height) + L" --speed " + widen(std::to_string(o.speed));
    if (o.once) command += L" --once";
    return command;
}

HANDLE inheritableFile(const std::wstring& path) {
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr);
}

struct Running {
    GalleryEntry* entry;
    std::wstring folder;
    PROCESS_INFORMATION process;
    double started;
};

bool start(const Options& o, GalleryEntry& entry, const std::wstring& out, Running& running) {
    running = {&entry, out + L"\\" + widen(entry.folder), {}, secondsNow()};
    std::replace(running.folder.begin(), running.folder.end(), L'/', L'\\');
    createDirectories(running.folder);
    DeleteFileW((running.folder + L"\\" + widen(kCardFile)).c_str());
    DeleteFileW((running.folder + L"\\" + widen(kPreviewFile)).c_str());
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nullptr;
    startup.hStdOutput = inheritableFile(running.folder + L"\\output.txt");
    startup.hStdError = inheritableFile(running.folder + L"\\errors.txt");
    std::wstring command = cardCommand(o, entry, running.folder);
    // The files are closed here at once, so the next file's process does not inherit them too.
    const bool started = CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                                        &startup, &running.process);
    CloseHandle(startup.hStdOutput);
    CloseHandle(startup.hStdError);
    return started;
}

std::string readText(const std::wstring& path) {
    std::ifstream in(path.c_str(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The last complaint the file's process made (not a warning), without the program's name.
std::string lastComplaint(const std::wstring& errors) {
    const std::string prefix = "vexil-view: ", text = readText(errors);
    std::string last;
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != std::string::npos || at < text.size(); at = end + 1) {
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(at, end - at);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
        if (line.compare(0, prefix.size(), prefix) == 0 && line.compare(prefix.size(), 8, "warning:") != 0)
            last = line.substr(prefix.size());
    }
    return last;
}

std::string crashDescription(DWORD code) {
    static const struct {
        DWORD code;
        const char* name;
    } known[] = {{0xC0000005, "access violation"},       {0xC00000FD, "stack overflow"},
                 {0xC0000094, "integer division by zero"}, {0xC0000409, "stack buffer overrun"},
                 {0xC000001D, "illegal instruction"},     {0x80000003, "breakpoint"},
                 {0xC0000374, "heap corruption"}};
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08lX", static_cast<unsigned long>(code));
    for (const auto& k : known)
        if (k.code == code) return std::string("crashed: ") + k.name + " (" + hex + ")";
    return std::string("ended with exit code ") + (code < 0x10000 ? std::to_string(code) : hex);
}

// What became of a file whose process ended with code (or was stopped).
void settle(Running& r, DWORD code, bool stopped, double timeout) {
    GalleryEntry& e = *r.entry;
    e.seconds = secondsNow() - r.started;
    const std::wstring errors = r.folder + L"\\errors.txt";
    if (stopped) {
        e.status = FileStatus::Crashed;
        e.reason = "timed out: still drawing after " + std::to_string(static_cast<int>(timeout)) + " s, stopped";
    } else if (code == kExitOk && readCard(r.folder + L"\\" + widen(kCardFile), e.card)) {
        e.status = e.card.warnings.empty() ? FileStatus::Shown : FileStatus::Warned;
        e.preview = isFile(r.folder + L"\\" + widen(kPreviewFile));
    } else if (code == kExitRefused) {
        e.status = FileStatus::Refused;
        e.reason = lastComplaint(errors);
    } else {
        e.status = FileStatus::Crashed;
        const std::string complaint = lastComplaint(errors);
        e.reason = code == kExitOk ? "ended without describing the file"
                                   : crashDescription(code) + (complaint.empty() ? "" : ": " + complaint);
    }
    CloseHandle(r.process.hProcess);
    CloseHandle(r.process.hThread);
}

void reportStart(const GalleryEntry& e, size_t index, size_t count) {
    std::printf("vexil-view: [%zu/%zu] %s (%zu to go)\n", index + 1, count, e.path.c_str(), count - index - 1);
    std::fflush(stdout);
}

// Runs the files' processes, at most one a processor at a time.
void drawAll(const Options& o, std::vector<GalleryEntry>& entries, const std::wstring& out) {
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    const size_t jobs = std::max<size_t>(1, system.dwNumberOfProcessors);
    std::vector<Running> running;
    size_t next = 0;
    while (next < entries.size() || !running.empty()) {
        while (running.size() < jobs && next < entries.size()) {
            Running r;
            reportStart(entries[next], next, entries.size());
            if (start(o, entries[next], out, r)) {
                running.push_back(r);
            } else {
                entries[next].reason = "could not be started";
            }
            ++next;
        }
        std::vector<HANDLE> handles;
        for (const Running& r : running) handles.push_back(r.process.hProcess);
        if (!handles.empty()) WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, 100);
        for (size_t i = running.size(); i-- > 0;) {
            Running& r = running[i];
            const bool ended = WaitForSingleObject(r.process.hProcess, 0) == WAIT_OBJECT_0;
            const bool overdue = !ended && secondsNow() - r.started > o.timeout;
            if (!ended && !overdue) continue;
            if (overdue) {
                TerminateProcess(r.process.hProcess, 1);
                WaitForSingleObject(r.process.hProcess, 5000);
            }
            DWORD code = 0;
            GetExitCodeProcess(r.process.hProcess, &code);
            settle(r, code, overdue, o.timeout);
            running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Cards: one "key<TAB>value" line a fact.

Card cardOf(const SceneReport& report, double loadMilliseconds) {
    Card card;
    card.loadMilliseconds = loadMilliseconds;
    card.triangles = report.triangles;
    card.frames = report.frames;
    card.bones = report.bones;
    for (const AnimationSetFacts& set : report.sets) card.sets.emplace_back(set.name, set.seconds);
    card.texturesFound = report.texturesFound();
    card.texturesMissing = report.texturesMissing();
    card.warnings = report.warnings;
    return card;
}

bool writeCard(const std::string& path, const Card& card) {
    FILE* f = _wfopen(widen(path).c_str(), L"wb");
    if (!f) return false;
    std::fprintf(f, "load\t%.1f\ntriangles\t%u\nframes\t%u\nbones\t%u\n", card.loadMilliseconds, card.triangles, card.frames,
                 card.bones);
    for (const auto& set : card.sets) std::fprintf(f, "set\t%.3f\t%s\n", set.second, set.first.c_str());
    for (const std::string& t : card.texturesFound) std::fprintf(f, "found\t%s\n", t.c_str());
    for (const std::string& t : card.texturesMissing) std::fprintf(f, "missing\t%s\n", t.c_str());
    for (const std::string& w : card.warnings) std::fprintf(f, "warning\t%s\n", w.c_str());
    return std::fclose(f) == 0;
}

bool readCard(const std::wstring& path, Card& card) {
    std::ifstream in(path.c_str(), std::ios::binary);
    if (!in) return false;
    card = Card();
    for (std::string line; std::getline(in, line);) {
        const size_t tab = line.find('\t');
        if (tab == std::string::npos) continue;
        const std::string key = line.substr(0, tab), value = line.substr(tab + 1);
        const char* number = value.c_str();
        if (key == "load") card.loadMilliseconds = std::atof(number);
        else if (key == "triangles") card.triangles = static_cast<unsigned>(std::strtoul(number, nullptr, 10));
        else if (key == "frames") card.frames = static_cast<unsigned>(std::strtoul(number, nullptr, 10));
        else if (key == "bones") card.bones = static_cast<unsigned>(std::strtoul(number, nullptr, 10));
        else if (key == "set") card.sets.emplace_back(value.substr(std::min(value.size(), value.find('\t') + 1)), std::atof(number));
        else if (key == "found") card.texturesFound.push_back(value);
        else if (key == "missing") card.texturesMissing.push_back(value);
        else if (key == "warning") card.warnings.push_back(value);
    }
    return true;
}

std::vector<GalleryEntry> galleryFiles(const std::wstring& root) {
    std::vector<GalleryEntry> entries;
    findXFiles(root, L"", entries);
    std::sort(entries.begin(), entries.end(), [](const GalleryEntry& a, const GalleryEntry& b) {
        return _stricmp(a.path.c_str(), b.path.c_str()) < 0;
    });
    for (size_t i = 0; i < entries.size(); ++i) {
        char folder[32];
        std::snprintf(folder, sizeof folder, "cards/%04zu", i + 1);
        entries[i].folder = folder;
    }
    return entries;
}

int runGallery(const Options& o) {
    const double started = secondsNow();
    const std::wstring root = fullPath(o.gallery), out = fullPath(o.outputDirectory);
    if (!isDirectory(root)) {
        complain("no folder " + o.gallery);
        return kExitRefused;
    }
    std::vector<GalleryEntry> entries = galleryFiles(root);
    if (!createDirectories(out + L"\\cards")) {
        complain("cannot create the output directory " + o.outputDirectory);
        return kExitFailure;
    }
    drawAll(o, entries, out);
    const std::wstring page = out + L"\\index.html";
    if (!writeGalleryPage(page, narrow(root), entries, secondsNow() - started)) {
        complain("cannot write " + narrow(page));
        return kExitFailure;
    }
    size_t counts[4] = {0, 0, 0, 0};
    for (const GalleryEntry& e : entries) ++counts[static_cast<int>(e.status)];
    std::printf("vexil-view: %zu X files in %.1f s: %zu shown, %zu shown with warnings, %zu refused, %zu crashed or timed out\n",
                entries.size(), secondsNow() - started, counts[0], counts[1], counts[2], counts[3]);
    std::printf("vexil-view: gallery written to %s\n", narrow(page).c_str());
    return kExitOk;
}

}  // namespace vexilview
