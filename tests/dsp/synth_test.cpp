#include "dsp/synth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <string>
#include <vector>

#include "dsp/tone_tables.h"
#include "lib/log.h"

// A log that keeps its lines.
int log_level = -1;
static std::string lines;
void log_set_level(int level) {
    log_level = level;
}
int log_add_message(int level, str const& message, str const&) {
    EXPECT_EQ(level, 7);
    lines.append(reinterpret_cast<char const*>(message.cbuffer()), static_cast<size_t>(message.length()));
    lines += '\n';
    return 0;
}

namespace {

using program = std::array<int, 8>;

program row(int kind, int set) {
    tone_row const& r = tone_tables[kind - 1][set - 1];
    return {r.freq1, r.freq2, r.initial, r.on1, r.off1, r.on2, r.off2, r.level};
}

void start(synth& tone, program const& p) {
    tone.set_program(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
}

std::array<std::int16_t, 80> block(synth& tone) {
    str const pcm = tone.get_10ms();
    std::array<std::int16_t, 80> samples{};
    EXPECT_EQ(pcm.length(), 160);
    std::memcpy(samples.data(), pcm.cbuffer(), std::min(sizeof samples, static_cast<size_t>(pcm.length())));
    return samples;
}

std::vector<int> play(synth& tone, int samples) {
    std::vector<int> all;
    while (static_cast<int>(all.size()) < samples)
        for (int sample : block(tone))
            all.push_back(sample);
    return all;
}

// The generator in floating point: a list of segments that sound or not, and phases by remainder.
class model {
public:
    explicit model(program const& p) : tone(p) {}

    int next() {
        envelope = std::clamp(envelope + 2 * direction(), 0.0, 256.0);
        double const sum = sine(tone[0]) + sine(tone[1]);
        n += 1;
        return static_cast<int>(
            std::clamp(std::trunc(tone[7] * std::trunc(envelope * sum / 256) / 256), -32767.0, 32767.0));
    }

private:
    int direction() const {
        long t = n;
        int sounding = 1;
        if (tone[2] > 0) {
            if (t < tone[2])
                return 1;
            t -= tone[2];
            sounding = -1;
        }
        long const total = tone[3] + tone[4] + tone[5] + tone[6];
        if (total == 0)
            return 0;
        t %= total;
        for (unsigned i = 3; i < 6 && t >= tone[i]; i++, sounding = -sounding)
            t -= tone[i];
        return sounding;
    }

    double sine(int frequency) const {
        static std::vector<double> const table = [] {
            std::vector<double> t(257);
            for (unsigned i = 0; i < t.size(); i++)
                t[i] = std::round(32767 * std::sin(std::numbers::pi * i / 128));
            return t;
        }();
        double const x = std::fmod(static_cast<double>(n) * frequency * 32, 4294967296.0);
        double const position = std::fmod(std::floor(x / 125), 2048) / 8;
        double const fraction = position - std::floor(position);
        auto const step = static_cast<unsigned>(position);
        return std::trunc(table[step] * (1 - fraction) + table[step + 1] * fraction);
    }

    program tone;
    long n = 0;
    double envelope = 0;
};

// Compares block by block; returns after the first difference.
void compare(synth& tone, program const& p, int blocks) {
    model expected(p);
    for (int b = 0; b < blocks; b++) {
        auto const samples = block(tone);
        for (unsigned i = 0; i < samples.size(); i++)
            ASSERT_EQ(samples[i], expected.next()) << "sample " << b * 80 + static_cast<int>(i);
    }
}

}  // namespace

TEST(synth, every_row_plays_as_the_model_for_15_seconds) {
    for (int kind = 1; kind <= tone_kinds; kind++)
        for (int set = 1; set <= tone_sets; set++) {
            SCOPED_TRACE(testing::Message() << "set " << set << " kind " << kind);
            synth tone;
            ASSERT_EQ(tone.set_tone(set, kind), 1);
            ASSERT_FALSE(tone.empty());
            ASSERT_NO_FATAL_FAILURE(compare(tone, row(kind, set), 1500));
        }
}

// The product of 440 Hz passes 2^32 behind sample 305040; others pass earlier and more often.
TEST(synth, phase_jumps_where_the_product_wraps) {
    program const programs[] = {{440, 0, 100, 0, 0, 0, 0, 256},
                                {350, 440, 2000, 0, 0, 0, 0, 16},
                                {4000, 3999, 1, 0, 0, 0, 0, 64},
                                {440, 480, 0, 16000, 32000, 16000, 32000, 16}};
    for (program const& p : programs) {
        synth tone;
        start(tone, p);
        ASSERT_NO_FATAL_FAILURE(compare(tone, p, 8000));
    }
    synth tone;
    tone.set_program(440, 0, 300, 0, 0, 0, 0, 256);
    std::vector<int> const samples = play(tone, 306000);
    auto const step = [&](unsigned n) { return std::abs(samples[n] - samples[n - 1]); };
    unsigned n = 1000;
    while (n < samples.size() &&
           step(n) < 12000)  // the steepest step of the sine is 32767 * 2 pi * 440 / 8000
        n++;
    EXPECT_EQ(n, 305041u);
}

// Only the sine itself as reference: a truncated phase of 1/2048 period and a linear interpolation stay within.
TEST(synth, frequencies_and_gain_are_right) {
    for (int frequency : {150, 425, 620, 3400}) {
        synth tone;
        tone.set_program(frequency, 0, 128, 0, 0, 0, 0, 64);
        std::vector<int> const samples = play(tone, 24000);
        for (unsigned n = 128; n < samples.size(); n++) {
            double const exact =
                32767 / 4.0 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(n) / 8000);
            ASSERT_NEAR(samples[n], exact, 8192 * 2 * std::numbers::pi / 2048 + 3)
                << frequency << " Hz, " << n;
        }
    }
}

TEST(synth, ramps_and_limits) {
    synth tone;
    ASSERT_EQ(tone.set_tone(1, 4), 1);
    std::vector<int> const dial = play(tone, 80000);
    EXPECT_EQ(dial[0], 0);
    auto const [low, high] = std::minmax_element(dial.begin(), dial.end());
    EXPECT_NEAR(*high, 4096, 16);
    EXPECT_NEAR(*low, -4096, 16);

    // Two full-scale oscillators clip at 32767 on both sides, never at -32768.
    tone.set_program(1000, 1000, 128, 0, 0, 0, 0, 256);
    std::vector<int> const loud = play(tone, 800);
    EXPECT_EQ(*std::max_element(loud.begin(), loud.end()), 32767);
    EXPECT_EQ(*std::min_element(loud.begin(), loud.end()), -32767);

    // Neither an initial period nor a cadence: silent, but not empty.
    tone.set_program(1000, 0, 0, 0, 0, 0, 0, 256);
    EXPECT_FALSE(tone.empty());
    for (int sample : play(tone, 800))
        ASSERT_EQ(sample, 0);
}

// Samples at which the tone goes on, off, on, ... With an initial period the cadence starts with its silence.
TEST(synth, cadences_by_the_clock) {
    struct {
        int set, kind;
        std::vector<int> edges;
    } const cases[] = {
        {1, 1, {0, 16000, 48000, 64000, 96000, 112000, 144000}},
        {3, 1, {0, 2000, 34000, 42000, 74000, 82000, 114000}},
        {13, 1, {0, 3200, 4800, 8000, 24000, 27200}},
        {11, 4, {0, 4800, 12800, 14400, 16000, 20800}},
    };
    for (auto const& c : cases) {
        synth tone;
        tone.set_tone(c.set, c.kind);
        std::vector<int> const samples = play(tone, c.edges.back());
        for (unsigned i = 0; i + 1 < c.edges.size(); i++) {  // behind each ramp
            auto const [low, high] =
                std::minmax_element(samples.begin() + c.edges[i] + 128, samples.begin() + c.edges[i + 1]);
            bool const on = i % 2 == 0;
            EXPECT_TRUE(on ? *high - *low > 4000 : *high == 0 && *low == 0)
                << "set " << c.set << " kind " << c.kind << " from " << c.edges[i];
        }
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
        for (int sample : block(tone))
            ASSERT_EQ(sample, 0);
    }
    // A program starts at its beginning, whatever played before.
    synth tone;
    tone.set_tone(1, 4);
    play(tone, 4000);
    tone.set_tone(5, 2);
    compare(tone, row(2, 5), 100);
}

TEST(synth, logs_every_program_and_the_rows_are_the_known_ones) {
    lines.clear();
    synth tone;
    log_set_level(6);
    tone.set_tone(1, 1);
    EXPECT_EQ(lines, "");
    log_set_level(7);
    tone.set_tone(2, 3);
    EXPECT_EQ(lines, "Synth 400 0 0 3200 2800 1760 4160 64\n");
    lines.clear();
    for (int kind = 1; kind <= 4; kind++)
        for (int set = 1; set <= 16; set++)
            tone.set_tone(set, kind);
    log_set_level(-1);
    std::uint64_t hash = 0xcbf29ce484222325;  // FNV-1a of all 64 lines
    for (char c : lines)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    EXPECT_EQ(hash, 0xdcd0839ec4aadba8u) << lines;
}
