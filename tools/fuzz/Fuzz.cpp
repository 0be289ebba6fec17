// vexil-fuzz: the damaged-input campaign. Makes damaged variants of the project's X files,
// compiled effects and effect sources (and of the third-party samples when given), runs them in
// watched child processes (vexil-fuzz-runner, several inputs each, one time limit per input) and
// reports tried / refused / loaded / crashed / hung / leaked per target, keeping every input that
// crashed, hung or leaked. X files go through D3DX alone ("x") and through the whole scene path
// ("scene": load, index, animate, both skin paths, device reset and reallocation, clean-up).
//   vexil-fuzz --source DIR --out DIR [--samples DIR] [--minutes N] [--count N] [--seed S]
#include "Mutator.h"
#include "XFixtures.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string source;
    std::string out;
    std::string samples;
    double minutes = 0;
    size_t count = 0;
    unsigned seed = 1;
};

struct Seed {
    std::string name;
    std::string bytes;
};

enum class Outcome { Loaded, Refused, Crashed, Hung, Leaked };

struct Input {
    std::string path;
    std::string description;
    Outcome outcome = Outcome::Crashed;
};

struct Target {
    const char* name;
    bool effect;
    bool source;
    std::vector<Seed> seeds;
    size_t tried = 0, refused = 0, loaded = 0, crashed = 0, hung = 0, leaked = 0;
};

const DWORD kInputSeconds = 20;     // one input may take this long under a loaded Wine
const DWORD kStartupSeconds = 120;  // a runner making its device
const size_t kBatch = 40;           // inputs per runner process

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool endsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() && lower(text).compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Files of `dir` (and below) whose names end in one of `tails`, in name order.
void findFiles(const std::string& dir, const std::vector<std::string>& tails, std::vector<Seed>& seeds)
{
    WIN32_FIND_DATAA entry;
    HANDLE search = FindFirstFileA((dir + "\\*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    std::vector<std::string> names;
    do {
        names.push_back(entry.cFileName);
    } while (FindNextFileA(search, &entry));
    FindClose(search);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        if (name == "." || name == "..")
            continue;
        const std::string path = dir + "\\" + name;
        if (GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) {
            findFiles(path, tails, seeds);
            continue;
        }
        for (const std::string& tail : tails) {
            if (endsWith(name, tail))
                seeds.push_back({name, readFile(path)});
        }
    }
}

std::string binDir()
{
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path);
    return dir.substr(0, dir.find_last_of('\\'));
}

std::vector<Target> makeTargets(const Options& options)
{
    std::vector<Target> targets = {{"x", false, false, {}},
                                   {"scene", false, false, {}},
                                   {"effect", true, false, {}},
                                   {"fxc", true, true, {}}};
    for (auto& [name, bytes] : xfixtures::seedFiles())
        targets[0].seeds.push_back({name, bytes});
    findFiles(binDir() + "\\test-effects", {".fxo"}, targets[2].seeds);
    findFiles(options.source + "\\tests\\effects\\fixtures", {".fx"}, targets[3].seeds);
    findFiles(options.source + "\\bench\\effects", {".fx"}, targets[3].seeds);
    if (!options.samples.empty()) {
        findFiles(options.samples, {".x"}, targets[0].seeds);
        findFiles(options.samples, {".fxb"}, targets[2].seeds);
    }
    targets[1].seeds = targets[0].seeds;
    findFiles(binDir() + "\\scene", {".x"}, targets[1].seeds);  // the bundled scene: textures, camera, skin
    return targets;
}

HANDLE nullDevice()
{
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    return CreateFileA("NUL", GENERIC_WRITE, FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0, nullptr);
}

// A child with stdout to `output` (or nowhere) and stderr to `errors` (or nowhere).
PROCESS_INFORMATION start(const std::string& commandLine, HANDLE output, HANDLE errors)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    HANDLE nowhere = nullDevice();
    startup.hStdInput = nowhere;
    startup.hStdOutput = output ? output : nowhere;
    startup.hStdError = errors ? errors : nowhere;
    PROCESS_INFORMATION process{};
    std::string line = commandLine;
    if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process))
        process.hProcess = nullptr;
    CloseHandle(nowhere);
    return process;
}

void finish(PROCESS_INFORMATION& process, bool kill)
{
    if (kill)
        TerminateProcess(process.hProcess, 1);
    WaitForSingleObject(process.hProcess, 10000);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
}

// Where a runner is: on `current` when `started`, else about to start it.
struct Progress {
    size_t current;
    bool started = false;
    Clock::time_point since = Clock::now();
};

// "start N" or "done N loaded|refused", N counted from the batch's first input.
void applyLine(const std::string& line, size_t from, std::vector<Input>& inputs, Progress& progress)
{
    char word[16] = {}, result[16] = {};
    unsigned index = 0;
    if (std::sscanf(line.c_str(), "%15s %u %15s", word, &index, result) < 2 || from + index >= inputs.size())
        return;
    const bool done = std::strcmp(word, "done") == 0;
    if (done)
        inputs[from + index].outcome = std::strcmp(result, "loaded") == 0   ? Outcome::Loaded
                                       : std::strcmp(result, "leaked") == 0 ? Outcome::Leaked
                                                                            : Outcome::Refused;
    progress = {from + index + (done ? 1 : 0), !done, Clock::now()};
}

// Appends what the pipe holds; false when it held nothing.
bool drain(HANDLE pipe, std::string& pending)
{
    DWORD available = 0;
    if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) || !available)
        return false;
    std::string chunk(available, '\0');
    DWORD got = 0;
    ReadFile(pipe, &chunk[0], available, &got, nullptr);
    pending.append(chunk, 0, got);
    return true;
}

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "vexil-fuzz: %s\n", what);
    std::exit(2);
}

// Runs inputs[from..] in one runner; returns the index of the first input it did not settle. An
// input the runner dies on has crashed; one it stays on past the time limit has hung.
size_t runBatch(const Target& target, std::vector<Input>& inputs, size_t from, const std::string& listPath)
{
    std::ofstream list(listPath, std::ios::trunc);
    for (size_t i = from; i < inputs.size(); ++i)
        list << inputs[i].path << "\n";
    list.close();
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    CreatePipe(&readEnd, &writeEnd, &inherit, 0);
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    PROCESS_INFORMATION runner =
        start("\"" + binDir() + "\\vexil-fuzz-runner.exe\" " + target.name + " \"" + listPath + "\"", writeEnd, nullptr);
    CloseHandle(writeEnd);
    if (!runner.hProcess)
        fail("cannot start vexil-fuzz-runner.exe");
    Progress progress{from};
    std::string pending;
    for (;;) {
        const bool read = drain(readEnd, pending);
        for (size_t eol; (eol = pending.find('\n')) != std::string::npos; pending.erase(0, eol + 1))
            applyLine(pending.substr(0, eol), from, inputs, progress);
        const bool exited = WaitForSingleObject(runner.hProcess, read ? 0 : 20) == WAIT_OBJECT_0;
        if (exited && drain(readEnd, pending))
            continue;  // what it said before it went
        const double waited = std::chrono::duration<double>(Clock::now() - progress.since).count();
        const bool stuck = waited > (progress.started ? kInputSeconds : kStartupSeconds);
        if (!exited && !stuck)
            continue;
        finish(runner, !exited);
        CloseHandle(readEnd);
        if (!progress.started && progress.current == from && from < inputs.size())
            fail("vexil-fuzz-runner.exe did not get as far as its first input");
        if (!progress.started)
            return progress.current;
        inputs[progress.current].outcome = exited ? Outcome::Crashed : Outcome::Hung;
        return progress.current + 1;
    }
}

const char* outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Loaded:
        return "loaded";
    case Outcome::Refused:
        return "refused";
    case Outcome::Crashed:
        return "crashed";
    case Outcome::Leaked:
        return "leaked";
    default:
        return "hung";
    }
}

// Counts the outcomes, keeps the failing inputs (with how they were made) and drops the rest.
void settle(Target& target, std::vector<Input>& inputs, const std::string& keepDir)
{
    for (Input& input : inputs) {
        ++target.tried;
        size_t* counts[] = {&target.loaded, &target.refused, &target.crashed, &target.hung, &target.leaked};
        ++*counts[int(input.outcome)];
        if (input.outcome != Outcome::Loaded && input.outcome != Outcome::Refused) {
            const std::string name = input.path.substr(input.path.find_last_of('\\') + 1);
            CopyFileA(input.path.c_str(), (keepDir + "\\" + name).c_str(), FALSE);
            std::ofstream log(keepDir + "\\failures.txt", std::ios::app);
            log << name << ": " << outcomeName(input.outcome) << ": " << input.description << "\n";
            std::printf("  %s %s: %s\n", outcomeName(input.outcome), name.c_str(), input.description.c_str());
        }
        DeleteFileA(input.path.c_str());
    }
}

void runTarget(Target& target, const Options& options, Clock::time_point deadline)
{
    const std::string workDir = options.out + "\\work-" + target.name;
    const std::string keepDir = options.out + "\\" + target.name;
    CreateDirectoryA(workDir.c_str(), nullptr);
    CreateDirectoryA(keepDir.c_str(), nullptr);
    DeleteFileA((keepDir + "\\failures.txt").c_str());
    if (target.seeds.empty()) {
        std::printf("%s: no seed files found\n", target.name);
        return;
    }
    size_t next = 0;
    while ((!options.count || next < options.count) && (options.minutes <= 0 || Clock::now() < deadline)) {
        std::vector<Input> inputs;
        for (size_t i = 0; i < kBatch && (!options.count || next < options.count); ++i, ++next) {
            // Every input has its own generator: a run of any length tries the same inputs first.
            std::mt19937 random(options.seed * 7919u + unsigned(next) * 31u + unsigned(target.name[0]));
            const Seed& seed = target.seeds[next % target.seeds.size()];
            Input input;
            input.description = seed.name + ": ";
            const auto encoding = fuzz::encodingOf(seed.bytes, target.effect, target.source);
            const std::string variant = fuzz::mutate(seed.bytes, encoding, random, input.description);
            input.path = workDir + "\\" + std::to_string(next) + "-" + seed.name;
            writeFile(input.path, variant);
            inputs.push_back(input);
        }
        for (size_t from = 0; from < inputs.size();)
            from = runBatch(target, inputs, from, workDir + "\\list.txt");
        settle(target, inputs, keepDir);
    }
}

bool parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        const char* value = argv[i + 1];
        if (flag == "--source")
            options.source = value;
        else if (flag == "--out")
            options.out = value;
        else if (flag == "--samples")
            options.samples = value;
        else if (flag == "--minutes")
            options.minutes = std::atof(value);
        else if (flag == "--count")
            options.count = size_t(std::atol(value));
        else if (flag == "--seed")
            options.seed = unsigned(std::atol(value));
        else
            return false;
    }
    return argc % 2 == 1 && !options.source.empty() && !options.out.empty() && (options.minutes > 0 || options.count);
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: vexil-fuzz --source DIR --out DIR [--samples DIR] [--minutes N] [--count N] "
                             "[--seed S]\n");
        return 2;
    }
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    CreateDirectoryA(options.out.c_str(), nullptr);
    std::vector<Target> targets = makeTargets(options);
    const auto share = std::chrono::duration<double>(options.minutes * 60.0 / double(targets.size()));
    for (Target& target : targets) {
        std::printf("%s: %zu seed files\n", target.name, target.seeds.size());
        std::fflush(stdout);
        runTarget(target, options, Clock::now() + std::chrono::duration_cast<Clock::duration>(share));
    }
    std::printf("\n%-8s %7s %8s %7s %8s %5s %7s\n", "target", "tried", "refused", "loaded", "crashed", "hung", "leaked");
    bool clean = true;
    for (const Target& t : targets) {
        std::printf("%-8s %7zu %8zu %7zu %8zu %5zu %7zu\n", t.name, t.tried, t.refused, t.loaded, t.crashed, t.hung,
                    t.leaked);
        clean = clean && t.crashed == 0 && t.hung == 0 && t.leaked == 0;
    }
    std::printf("%s\n", clean ? "nothing crashed, hung or leaked" : ("failing inputs kept under " + options.out).c_str());
    return clean ? 0 : 1;
}
