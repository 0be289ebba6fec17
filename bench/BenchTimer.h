#pragma once
// Timing and reporting for the benchmark programs: best of several runs, in one process. Each
// figure is printed as one machine-readable row; `./vexil bench` gathers the rows of every
// program into one table.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vexilbench {

inline double nowSeconds() {
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return static_cast<double>(t.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// Fastest of `runs` timings of body(), in seconds.
template <class Body> double bestOf(int runs, Body body) {
    double best = 1e30;
    for (int i = 0; i < runs; ++i) {
        double start = nowSeconds();
        body();
        double elapsed = nowSeconds() - start;
        if (elapsed < best) best = elapsed;
    }
    return best;
}

// One row of the table: our time and the reference's (seconds), the reference's name and the
// ratio ours / reference that is the target. Tabs cannot occur in the texts of this project.
inline void report(const char* what, double ours, double reference, const char* referenceName, double target) {
    std::printf("@row\t%s\t%.9g\t%.9g\t%s\t%g\n", what, ours * 1e3, reference * 1e3, referenceName, target);
    std::fflush(stdout);
}

// A row without figures: a measurement that could not be made, and why.
inline void note(const char* what, const std::string& why) {
    std::printf("@note\t%s\t%s\n", what, why.c_str());
    std::fflush(stdout);
}

// A file given relative to the folder of this program, so that the program can be started from
// anywhere.
inline std::string besideProgram(const std::string& relative) {
    char path[MAX_PATH] = {};
    DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path, length);
    return dir.substr(0, dir.find_last_of("\\/") + 1) + relative;
}

// A file of the third-party samples beside the repository: from VEXIL_SOURCE_DIR when set, else
// from the program's folder, build/bin of the repository.
inline std::string samplePath(const std::string& relative) {
    const char* source = std::getenv("VEXIL_SOURCE_DIR");
    std::string root = source ? std::string("Z:") + source : besideProgram("..\\..");
    std::string path = root + "\\..\\shared\\samples\\" + relative;
    for (char& c : path)
        if (c == '/') c = '\\';
    return path;
}

}  // namespace vexilbench
