#include "dsp/synth.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <numbers>

#include "dsp/dtmf_synthesizer.h"
#include "tests/support/control_peer.h"
#include "tests/support/digest.h"
#include "tests/support/seed.h"

namespace {

std::array<std::int16_t, 80> block(str const& pcm) {
    std::array<std::int16_t, 80> samples{};
    EXPECT_EQ(pcm.length(), 160);
    std::memcpy(samples.data(), pcm.cbuffer(), 160);
    return samples;
}

// The digests are of samples that agreed, one by one, with a generator in floating point that follows the definition:
// a table of 256 steps, interpolated; a phase of 32 bits, whose product with the frequency may wrap; an envelope.

TEST(synth, rows_are_the_known_ones) {
    control_peer log(7);
    synth tone;  // starts afresh, whatever played before
    digest logged, played;
    for (int kind = 1; kind <= 4; kind++)
        for (int set = 1; set <= 16; set++) {
            ASSERT_EQ(tone.set_tone(set, kind), 1);
            for (int blocks = 0; blocks < 1500; blocks++)
                played.add(block(tone.get_10ms()));
            logged.add(log.log_lines().at(0).substr(2) + "\n");
        }
    EXPECT_EQ(logged.value, 0xdcd0839ec4aadba8u);
    EXPECT_EQ(played.value, 0xe0ce825878164e15u);
}

TEST(synth, programs_at_every_limit) {
    struct {
        int program[8];
        std::uint64_t played;
    } const table[] = {
        {{440, 0, 100, 0, 0, 0, 0, 256},
         0x6feded891dadd36fu},  // the product passes 2^32 behind sample 305040: the phase jumps
        {{350, 440, 2000, 0, 0, 0, 0, 16}, 0x00750c95ad28bf6eu},
        {{4000, 3999, 1, 0, 0, 0, 0, 64}, 0x249bd1db44a80ad6u},
        {{440, 480, 0, 16000, 32000, 16000, 32000, 16}, 0xe5f2738f41480ae3u},
        {{1000, 1000, 128, 0, 0, 0, 0, 256}, 0xb60636d4f70e8ecbu},  // clips at 32767 on both sides
        {{1000, 0, 0, 0, 0, 0, 0, 256}, 0x382065c52df4c325u},       // neither initial period nor cadence: silent
    };
    synth tone;
    for (auto const& [p, played] : table) {
        tone.set_program(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
        EXPECT_FALSE(tone.empty());
        digest all;
        for (int blocks = 0; blocks < 8000; blocks++)
            all.add(block(tone.get_10ms()));
        EXPECT_EQ(all.value, played) << p[0] << ' ' << p[1];
    }
}

TEST(synth, what_is_no_tone_clears) {
    for (auto const& [set, kind] : {std::pair(0, 1), {17, 1}, {1, 0}, {1, 5}, {-1, 1}, {1, -1}, {17, 4}}) {
        synth tone;
        EXPECT_TRUE(tone.empty());
        tone.set_tone(1, 4);
        block(tone.get_10ms());
        EXPECT_EQ(tone.set_tone(set, kind), 0) << set << ' ' << kind;
        EXPECT_TRUE(tone.empty());
        EXPECT_EQ(block(tone.get_10ms()), (std::array<std::int16_t, 80>{}));
    }
}

struct wave {
    int periods, length;
};
constexpr wave lows[4] = {{2, 23}, {5, 52}, {5, 47}, {2, 17}};  // 697, 770, 852, 941 Hz
constexpr wave highs[3] = {{8, 53}, {1, 6}, {12, 65}};          // 1209, 1336, 1477 Hz
constexpr int layout[12][2] = {{3, 1}, {0, 0}, {0, 1}, {0, 2}, {1, 0}, {1, 1},
                               {1, 2}, {2, 0}, {2, 1}, {2, 2}, {3, 0}, {3, 2}};

// Digits that change, stay, are none at all or are restarted, in random order. The samples agreed with sines of their
// own counter, added and attenuated in 64 bits.
TEST(dtmf_synthesizer, any_digits_at_any_attenuation) {
    dice random(1);
    dtmf_synthesizer generator;
    digest played;
    int digit = 0;
    for (int i = 0; i < 40000; i++) {
        int const what = random.below(16), attenuation = random.below(64);
        if (what == 0)
            digit = random.below(12);
        if (what == 1)
            generator.clear();
        constexpr int none[] = {INT_MIN, -1, 12, INT_MAX};
        int const asked = what == 2 ? none[random.below(4)] : digit;
        played.add(block(generator.get_samples(asked, static_cast<unsigned>(attenuation))));
    }
    EXPECT_EQ(played.value, 0x29151ac45e54dbb7u);
}

// A second of each key against two sines of -3 dBm0 each, less the attenuation: what is left beside them is 50 dB below
// them, and the frequencies are within 1.5 % (ITU-T Q.24).
TEST(dtmf_synthesizer, the_extension_gives_two_clean_sines) {
    constexpr double low_hz[] = {697, 770, 852, 941}, high_hz[] = {1209, 1336, 1477};
    dtmf_synthesizer generator({.dtmf = true});
    for (int digit = 0; digit < 12; digit++)
        for (int const attenuation : {0, 3, 10, 19, 24}) {
            wave const pair[] = {lows[layout[digit][0]], highs[layout[digit][1]]};
            double const hz[] = {8000.0 * pair[0].periods / pair[0].length, 8000.0 * pair[1].periods / pair[1].length};
            EXPECT_NEAR(hz[0] / low_hz[layout[digit][0]], 1, 0.015);
            EXPECT_NEAR(hz[1] / high_hz[layout[digit][1]], 1, 0.015);
            double const peak = 32768 * std::pow(10, (-3.14 - 3.01 - attenuation) / 20.0);
            double rest = 0;
            generator.clear();
            for (int n = 0; n < 8000;)
                for (int const sample : block(generator.get_samples(digit, static_cast<unsigned>(attenuation)))) {
                    double const t = 2 * std::numbers::pi * n++ / 8000;
                    double const difference = sample - peak * (std::sin(hz[0] * t) + std::sin(hz[1] * t));
                    rest += difference * difference / 8000;
                }
            EXPECT_LT(10 * std::log10(rest / (peak * peak)), -50) << digit << ' ' << attenuation;
        }
}

}  // namespace
