#include "dsp/synth.h"

#include <gtest/gtest.h>

#include <algorithm>
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

using program = std::array<int, 8>;

std::array<std::int16_t, 80> block(str const& pcm) {
    std::array<std::int16_t, 80> samples{};
    EXPECT_EQ(pcm.length(), 160);
    std::memcpy(samples.data(), pcm.cbuffer(), 160);
    return samples;
}

// One oscillator in floating point.
double sine(int frequency, long n) {
    static auto const sines = [] {
        std::array<double, 257> values;
        for (std::size_t i = 0; i < values.size(); i++)
            values[i] = std::round(32767 * std::sin(std::numbers::pi * static_cast<double>(i) / 128));
        return values;
    }();
    auto const table = [](double at) { return sines[static_cast<std::size_t>(at)]; };
    double const x = std::fmod(static_cast<double>(n) * frequency * 32, 4294967296.0);
    double const position = std::fmod(std::floor(x / 125), 2048) / 8, step = std::floor(position);
    return std::trunc(table(step) * (1 - position + step) + table(step + 1) * (position - step));
}

// Whether the envelope rises or falls: a list of segments that sound or not.
int direction(program const& p, long n) {
    if (n < p[2])
        return 1;
    long const total = p[3] + p[4] + p[5] + p[6];
    if (total == 0)
        return 0;
    int sounding = p[2] > 0 ? -1 : 1;
    n = (n - p[2]) % total;
    for (unsigned i = 3; i < 6 && n >= p[i]; i++, sounding = -sounding)
        n -= p[i];
    return sounding;
}

// Compares what plays, from its start, block by block, with the generator in floating point.
void expect_program(synth& tone, program const& p, int blocks) {
    double envelope = 0;
    for (long n = 0; n < 80 * blocks;)
        for (int const sample : block(tone.get_10ms())) {
            envelope = std::clamp(envelope + 2 * direction(p, n), 0.0, 256.0);
            double const sum = std::trunc(envelope * (sine(p[0], n) + sine(p[1], n)) / 256);
            ASSERT_EQ(sample, std::clamp(std::trunc(p[7] * sum / 256), -32767.0, 32767.0)) << "sample " << n;
            n++;
        }
}

TEST(synth, rows_play_as_the_model_and_are_the_known_ones) {
    control_peer log(7);
    synth tone;     // starts afresh, whatever played before
    digest logged;  // of all rows
    for (int kind = 1; kind <= 4; kind++)
        for (int set = 1; set <= 16; set++) {
            ASSERT_EQ(tone.set_tone(set, kind), 1);
            tone_row const& r = tone_tables[kind - 1][set - 1];
            program const row{r.freq1, r.freq2, r.initial, r.on1, r.off1, r.on2, r.off2, r.level};
            ASSERT_NO_FATAL_FAILURE(expect_program(tone, row, 1500)) << set << ", kind " << kind;
            logged.add(log.log_lines().at(0).substr(2) + "\n");
        }
    EXPECT_EQ(logged.value, 0xdcd0839ec4aadba8u);
}

TEST(synth, programs_play_as_the_model) {
    program const programs[] = {
        {440, 0, 100, 0, 0, 0, 0, 256},  // the product passes 2^32 behind sample 305040: the phase jumps
        {350, 440, 2000, 0, 0, 0, 0, 16},
        {4000, 3999, 1, 0, 0, 0, 0, 64},
        {440, 480, 0, 16000, 32000, 16000, 32000, 16},
        {1000, 1000, 128, 0, 0, 0, 0, 256},  // clips at 32767 on both sides
        {1000, 0, 0, 0, 0, 0, 0, 256},       // neither initial period nor cadence: silent
    };
    synth tone;
    for (program const& p : programs) {
        tone.set_program(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
        EXPECT_FALSE(tone.empty());
        ASSERT_NO_FATAL_FAILURE(expect_program(tone, p, 8000)) << "program " << &p - programs;
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

long wave_at(wave const& w, long position) {
    double const cycles = static_cast<double>(position % w.length) * w.periods / w.length;
    return std::clamp(static_cast<long>(8000 * std::sin(2 * std::numbers::pi * cycles)), -7999L, 7999L);
}

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
        for (int const sample : block(generator.get_samples(asked, static_cast<unsigned>(attenuation)))) {
            std::int64_t sum = 0;
            if (what != 2)
                sum = wave_at(lows[layout[asked][0]], position) + wave_at(highs[layout[asked][1]], position),
                position++;
            std::int64_t const wrapped = sum < 0 ? sum + 4294967296 : sum;
            ASSERT_EQ(sample, static_cast<std::int16_t>(wrapped / (attenuation + 10))) << asked << ", block " << i;
        }
    }
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
