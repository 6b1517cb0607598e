#pragma once

#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

inline std::string seed_trace(unsigned seed) {
    return "repeat with FXSMEDIA_TEST_SEED=" + std::to_string(seed);
}

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
/// FXSMEDIA_TEST_SEED names, which repeats a failed run. Put seed_trace() in scope so that a failure names it.
struct seed_range {
    unsigned first;
    unsigned count;

    template <typename action>
    void for_each(action const& act) const {
        if (char const* const chosen = std::getenv("FXSMEDIA_TEST_SEED"))
            return act(static_cast<unsigned>(std::stoul(chosen)));
        for (unsigned seed = first; seed < first + count; seed++)
            act(seed);
    }
    /// The same with dice of each seed; a failure names it.
    template <typename action>
    void roll(action const& act) const {
        for_each([&](unsigned seed) {
            SCOPED_TRACE(seed_trace(seed));
            dice random(seed);
            act(random);
        });
    }
};
