#pragma once

#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

/// Random decisions that are the same on every machine.
class dice {
public:
    explicit dice(unsigned seed) : engine(seed) {}
    /// 0..n-1
    int below(int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); }
    /// low..high
    int between(int low, int high) { return low + below(high - low + 1); }
    bool chance(int percent) { return below(100) < percent; }
    unsigned word() { return static_cast<unsigned>(engine()); }

private:
    std::mt19937 engine;
};

/// Seeds of a randomised test: `count` of them from `first` on, or the one that the environment variable
/// FXSMEDIA_TEST_SEED names, which repeats a failed run.
struct seed_range {
    unsigned first;
    unsigned count;

    /// Acts with dice of each seed; a failure names it.
    template <typename action>
    void roll(action const& act) const {
        char const* const chosen = std::getenv("FXSMEDIA_TEST_SEED");
        unsigned const from = chosen ? static_cast<unsigned>(std::stoul(chosen)) : first;
        for (unsigned seed = from; seed < from + (chosen ? 1 : count); seed++) {
            SCOPED_TRACE("repeat with FXSMEDIA_TEST_SEED=" + std::to_string(seed));
            dice random(seed);
            act(random);
        }
    }
};
