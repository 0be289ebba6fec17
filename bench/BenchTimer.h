#pragma once
// Timing for the benchmark programs: best of several runs, in one process.
#include <windows.h>

#include <cstdio>

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

inline void report(const char* what, double ours, double reference, const char* referenceName, double target) {
    double ratio = ours / reference;
    std::printf("%-44s %10.3f ms  vs %-34s %10.3f ms  ratio %5.2f (target %.2f) %s\n", what, ours * 1e3,
                referenceName, reference * 1e3, ratio, target, ratio <= target ? "ok" : "OVER");
}

}  // namespace vexilbench
