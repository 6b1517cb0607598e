#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "tests/sim/telephone_network.h"

/// Who says and hears what: every line and every far end is known by a tone of its own.
namespace sim {

constexpr int tone_count = line_count + far_count;
constexpr int peak = 5000, syllable_blocks = 20, voiced_blocks = 15;

/// Of a line (0..3) or a far end (4..11).
constexpr double tone_hz(int who) {
    return 350 + 120 * who;
}

/// Says its tone in syllables: a coder whose two sides start apart finds together in the pauses.
struct mouth {
    double phase = 0;
    int block = 0;
    void say(int who, std::int16_t* pcm) {
        for (int i = 0; i < block_samples; i++) {
            pcm[i] = static_cast<std::int16_t>(block < voiced_blocks ? std::lround(peak * std::sin(phase)) : 0);
            phase += 2 * std::numbers::pi * tone_hz(who) / 8000;
        }
        block = (block + 1) % syllable_blocks;
        phase = std::fmod(phase, 2 * std::numbers::pi);
    }
};

/// The last 400 ms, and how much of each tone is in them.
struct ear {
    static constexpr int size = 2 * syllable_blocks * block_samples;
    std::int16_t heard[size] = {};
    int at = 0;
    std::int64_t last = 0;  ///< when something was heard

    void hear(std::int16_t const* pcm, std::int64_t now) {
        last = now;
        for (int i = 0; i < block_samples; i++)
            heard[at + i] = pcm ? pcm[i] : std::int16_t{0};
        at = (at + block_samples) % size;
    }
    double amplitude(int who) const {
        double const step = 2 * std::cos(2 * std::numbers::pi * tone_hz(who) / 8000);
        double a = 0, b = 0;
        for (int i = 0; i < size; i++) {
            double const next = heard[(at + i) % size] + step * a - b;
            b = a;
            a = next;
        }
        return std::sqrt(std::max(0.0, a * a + b * b - step * a * b)) * 2 / size * syllable_blocks / voiced_blocks;
    }
};

}  // namespace sim
