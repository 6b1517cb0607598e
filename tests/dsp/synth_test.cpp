#include "dsp/synth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

namespace {

using program = std::array<int, 8>;

std::array<std::int16_t, 80> block(synth& tone) {
    std::array<std::int16_t, 80> samples{};
    str const pcm = tone.get_10ms();
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
        for (int const sample : block(tone)) {
            envelope = std::clamp(envelope + 2 * direction(p, n), 0.0, 256.0);
            double const sum = std::trunc(envelope * (sine(p[0], n) + sine(p[1], n)) / 256);
            ASSERT_EQ(sample, std::clamp(std::trunc(p[7] * sum / 256), -32767.0, 32767.0)) << "sample " << n;
            n++;
        }
}

TEST(synth, rows_play_as_the_model_and_are_the_known_ones) {
    control_peer log(7);
    synth tone;                               // starts afresh, whatever played before
    std::uint64_t hash = 0xcbf29ce484222325;  // FNV-1a of what is logged of all rows
    for (int kind = 1; kind <= 4; kind++)
        for (int set = 1; set <= 16; set++) {
            ASSERT_EQ(tone.set_tone(set, kind), 1);
            tone_row const& r = tone_tables[kind - 1][set - 1];
            program const row{r.freq1, r.freq2, r.initial, r.on1, r.off1, r.on2, r.off2, r.level};
            ASSERT_NO_FATAL_FAILURE(expect_program(tone, row, 1500)) << set << ", kind " << kind;
            std::string const line = log.log_lines().at(0);
            EXPECT_TRUE(kind != 3 || set != 2 || line == "7 Synth 400 0 0 3200 2800 1760 4160 64") << line;
            for (char const c : line.substr(2) + "\n")
                hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
        }
    EXPECT_EQ(hash, 0xdcd0839ec4aadba8u);
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
        block(tone);
        EXPECT_EQ(tone.set_tone(set, kind), 0) << set << ' ' << kind;
        EXPECT_TRUE(tone.empty());
        EXPECT_EQ(block(tone), (std::array<std::int16_t, 80>{}));
    }
}

}  // namespace
