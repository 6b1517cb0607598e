// Simulated days of telephony: a seeded driver opens and ends calls, changes what can be changed, loses, doubles,
// reorders and delays packets, steps the clocks, and checks all the way what the process does.
//
//     fxs_years [--seed N] [--days D] [--verbose]

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/sim/driver.h"

namespace {

/// What repeats a violation.
struct {
    unsigned long long seed = 1;
    double days = 1;
    sim::driver const* who = nullptr;
} run_of;

}  // namespace

void sim::violated(std::string_view what, long long value) {
    std::printf("%.*s (%lld)", static_cast<int>(what.size()), what.data(), value);
    if (run_of.who && run_of.who->living())
        std::printf(" after %.6f s", static_cast<double>(run_of.who->living()->now()) / second);
    std::printf("\nrepeat with: fxs_years --seed %llu --days %g\n", run_of.seed, run_of.days);
    std::fflush(stdout);
    std::_Exit(1);
}

int main(int argc, char** argv) {
    bool verbose = false;
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--verbose") == 0)
            verbose = true;
        else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc)
            run_of.seed = std::strtoull(argv[++i], nullptr, 10);
        else if (std::strcmp(argv[i], "--days") == 0 && i + 1 < argc)
            run_of.days = std::strtod(argv[++i], nullptr);
        else
            return std::printf("fxs_years [--seed N] [--days D] [--verbose]\n"), 2;
    }
    static sim::driver all(run_of.seed, verbose);
    run_of.who = &all;
    all.live(run_of.days);
}
