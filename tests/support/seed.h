#pragma once

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/dice.h"

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
