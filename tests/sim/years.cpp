// Simulated days of telephony: a seeded driver opens and ends calls, changes what can be changed, loses, doubles,
// reorders and delays packets, steps the clocks, and checks all the way what the process does.
//
//     fxs_years [--seed N] [--days D] [--extensions LIST] [--verbose]

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/extensions.h"
#include "tests/sim/driver.h"

int main(int argc, char** argv) {
    unsigned long long seed = 1;
    double days = 1;
    bool verbose = false;
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--verbose") == 0)
            verbose = true;
        else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc)
            seed = std::strtoull(argv[++i], nullptr, 10);
        else if (std::strcmp(argv[i], "--days") == 0 && i + 1 < argc)
            days = std::strtod(argv[++i], nullptr);
        else if (std::strcmp(argv[i], "--extensions") == 0 && i + 1 < argc && extensions.add(argv[i + 1]))
            i++;
        else
            return std::printf("fxs_years [--seed N] [--days D] [--extensions LIST] [--verbose]\n"), 2;
    }
    std::printf("fxs_years --seed %llu --days %g\n", seed, days);
    std::fflush(stdout);
    sim::random_source dice(seed);
    static sim::driver all(dice, false, verbose);
    all.begin();
    while (static_cast<double>(all.now()) < days * 86400 * sim::second)
        all.episode();
    all.print_figures();
    all.finish();
}
