#pragma once

#include <time.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <vector>

/// Comparisons of several programs' ways to do the same work, in one run on one machine: each is timed many times in
/// turn with the others, and the least counts, which is what it takes when nothing else disturbs it.
namespace stopwatch {

/// CPU time of this thread, ns. Time in which the machine did something else doesn't count.
inline double cpu_ns() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

struct contestant {
    std::string name;
    std::function<void()> work;             ///< timed
    double operations = 1;                  ///< that one call of `work` carries out
    std::function<void()> prepare = [] {};  ///< before each call of `work`, not timed

    double least_ns = std::numeric_limits<double>::infinity();  ///< per operation
};

/// Rounds in which every contestant works once. A first round that doesn't count fills caches and pools.
inline void race(std::vector<contestant>& contestants, int rounds) {
    for (int round = -1; round < rounds; round++) {
        for (contestant& one : contestants) {
            one.prepare();
            double const start = cpu_ns();
            one.work();
            double const took = (cpu_ns() - start) / one.operations;
            if (round >= 0)
                one.least_ns = std::min(one.least_ns, took);
        }
    }
}

/// Keeps a result from being optimised away.
template <typename T>
void use(T const& result) {
    asm volatile("" : : "r"(&result) : "memory");
}

}  // namespace stopwatch
