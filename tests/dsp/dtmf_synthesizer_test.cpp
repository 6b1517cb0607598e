#include "dsp/dtmf_synthesizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <numbers>

#include "tests/support/seed.h"

namespace {

struct wave {
    int periods, length;
};
constexpr wave lows[4] = {{2, 23}, {5, 52}, {5, 47}, {2, 17}};  // 697, 770, 852, 941 Hz
constexpr wave highs[3] = {{8, 53}, {1, 6}, {12, 65}};          // 1209, 1336, 1477 Hz
constexpr int layout[12][2] = {{3, 1}, {0, 0}, {0, 1}, {0, 2}, {1, 0}, {1, 1},
                               {1, 2}, {2, 0}, {2, 1}, {2, 2}, {3, 0}, {3, 2}};

long table(wave const& w, long position) {
    double const cycles = static_cast<double>(position % w.length) * w.periods / w.length;
    return std::clamp(static_cast<long>(8000 * std::sin(2 * std::numbers::pi * cycles)), -7999L, 7999L);
}

}  // namespace

// Digits that change, stay, are none at all or are restarted, in random order, against the definition: one counter
// for both groups, 64-bit arithmetic instead of wrapping.
TEST(dtmf_synthesizer, any_digits_at_any_attenuation) {
    dice random(1);
    dtmf_synthesizer generator;
    int digit = 0, last = 0;
    long position = 0;
    for (int i = 0; i < 40000; i++) {
        int const what = random.below(16), attenuation = random.below(64);
        if (what == 0)
            digit = random.below(12);
        if (what == 1)
            generator.clear(), position = 0;
        constexpr int none[] = {INT_MIN, -1, 12, INT_MAX};
        int const asked = what == 2 ? none[random.below(4)] : digit;
        if (what != 2 && asked != last)
            last = asked, position = 0;
        str const pcm = generator.get_samples(asked, static_cast<unsigned>(attenuation));
        ASSERT_EQ(pcm.length(), 160);
        std::int16_t block[80];
        std::memcpy(block, pcm.cbuffer(), sizeof block);
        for (std::int16_t const sample : block) {
            std::int64_t sum = 0;
            if (what != 2) {
                sum = table(lows[layout[asked][0]], position) + table(highs[layout[asked][1]], position);
                position++;
            }
            std::int64_t const wrapped = sum < 0 ? sum + 4294967296 : sum;
            ASSERT_EQ(sample, static_cast<std::int16_t>(wrapped / (attenuation + 10)))
                << asked << ", block " << i;
        }
    }
}
