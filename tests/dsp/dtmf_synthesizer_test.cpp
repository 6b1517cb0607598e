#include "dsp/dtmf_synthesizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

namespace {

using samples = std::vector<std::int16_t>;

samples unpack(str const& pcm) {
    samples s(static_cast<size_t>(pcm.length() / 2));
    std::memcpy(s.data(), pcm.cbuffer(), static_cast<size_t>(pcm.length()));
    return s;
}

// The generator by its definition: one counter for each group, 64-bit arithmetic instead of wrapping.
class model {
public:
    samples next(int digit, unsigned attenuation) {
        samples block(80);
        if (digit < 0 || digit > 11)
            return block;
        if (digit != last)
            position = 0;
        last = digit;
        for (std::int16_t& sample : block) {
            long const sum = table(lows[layout[digit][0]]) + table(highs[layout[digit][1]]);
            long const wrapped = sum < 0 ? sum + 4294967296 : sum;
            sample = static_cast<std::int16_t>(wrapped / (attenuation + 10) % 65536);
            position++;
        }
        return block;
    }
    void clear() { position = 0; }

private:
    struct wave {
        int periods, length;
    };
    static constexpr wave lows[4] = {{2, 23}, {5, 52}, {5, 47}, {2, 17}};  // 697, 770, 852, 941 Hz
    static constexpr wave highs[3] = {{8, 53}, {1, 6}, {12, 65}};          // 1209, 1336, 1477 Hz
    static constexpr int layout[12][2] = {{3, 1}, {0, 0}, {0, 1}, {0, 2}, {1, 0}, {1, 1},
                                          {1, 2}, {2, 0}, {2, 1}, {2, 2}, {3, 0}, {3, 2}};

    long table(wave const& w) const {
        double const angle =
            2 * std::numbers::pi * w.periods * static_cast<double>(position % w.length) / w.length;
        return std::clamp(static_cast<long>(8000 * std::sin(angle)), -7999L, 7999L);
    }

    int last = 0;
    long position = 0;
};

}  // namespace

TEST(dtmf_synthesizer, first_samples) {
    dtmf_synthesizer generator;
    samples const one = unpack(generator.get_samples(1, 0));
    ASSERT_EQ(one.size(), 80u);
    EXPECT_EQ(one[0], 0);
    EXPECT_EQ(one[1], 1065);    // (4156 + 6499) / 10
    EXPECT_EQ(one[5], -26696);  // (2^32 - 4809) / 10 modulo 2^16
}

TEST(dtmf_synthesizer, all_digits_and_attenuations) {
    for (int digit = 0; digit < 12; digit++)
        for (unsigned attenuation = 0; attenuation < 64; attenuation++) {
            dtmf_synthesizer generator;
            model expected;
            for (int i = 0; i < 50; i++)
                ASSERT_EQ(unpack(generator.get_samples(digit, attenuation)),
                          expected.next(digit, attenuation))
                    << "digit " << digit << " attenuation " << attenuation << " block " << i;
        }
}

// Digits that change, stay, are none at all or are restarted, in random order.
TEST(dtmf_synthesizer, changes_of_digit) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    dtmf_synthesizer generator;
    model expected;
    int digit = 0;
    for (int i = 0; i < 20000; i++) {
        unsigned const dice = random() % 8;
        if (dice == 0)
            digit = static_cast<int>(random() % 12);
        if (dice == 1) {
            generator.clear();
            expected.clear();
        }
        int const asked = dice == 2 ? (random() % 2 ? -1 : 12) : digit;
        unsigned const attenuation = random() % 64;
        ASSERT_EQ(unpack(generator.get_samples(asked, attenuation)), expected.next(asked, attenuation)) << i;
    }
}

TEST(dtmf_synthesizer, no_digit_is_silence) {
    dtmf_synthesizer generator;
    for (int digit : {-2147483647 - 1, -1, 12, 16, 2147483647})
        EXPECT_EQ(unpack(generator.get_samples(digit, 0)), samples(80)) << digit;
}
