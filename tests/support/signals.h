#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

/// Repeatable test signals: 16-bit samples, `peak` (up to 32767) the largest magnitude. What is random comes from
/// the seed alone and is the same on every machine.
namespace signals {

using samples = std::vector<std::int16_t>;
using bytes = std::vector<std::uint8_t>;

struct named {
    std::string name;  ///< with the seed, to repeat a failure
    samples pcm;
};

inline int uniform(std::mt19937& random, int low, int high) {
    return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
}

inline std::int16_t rounded(double value) {
    return static_cast<std::int16_t>(std::lround(std::clamp(value, -32768.0, 32767.0)));
}

inline samples silence(int n) {
    return samples(static_cast<std::size_t>(n));
}

inline samples noise(int n, int peak, unsigned seed) {
    std::mt19937 random(seed);
    samples out;
    while (out.size() < static_cast<std::size_t>(n))
        out.push_back(static_cast<std::int16_t>(uniform(random, -peak, peak)));
    return out;
}

/// half_period samples at `peak`, as many at -peak - 1.
inline samples square(int n, int half_period, int peak) {
    samples out;
    for (int i = 0; i < n; i++)
        out.push_back(static_cast<std::int16_t>(i / half_period % 2 == 0 ? peak : -peak - 1));
    return out;
}

/// From 0 Hz to half the sampling rate.
inline samples sweep(int n, int peak) {
    samples out;
    double phase = 0;
    for (int i = 0; i < n; i++) {
        phase += std::numbers::pi * i / n;
        out.push_back(rounded(peak * std::sin(phase)));
    }
    return out;
}

/// Syllables of 100 to 250 ms, voiced (a gliding pulse train through three moving resonances), unvoiced (noise)
/// or pauses.
inline samples speech_like(int n, int peak, unsigned seed, int rate = 8000) {
    std::mt19937 random(seed);
    std::vector<double> raw;
    double history[3][2] = {};
    double phase = 0;
    while (raw.size() < static_cast<std::size_t>(n)) {
        int const length = uniform(random, rate / 10, rate / 4);
        int const kind = uniform(random, 0, 4);  // 0 pause, 1 unvoiced, else voiced
        double const pitch_hz = uniform(random, 90, 240), glide = uniform(random, -30, 30) / 100.0;
        double const formants_hz[3] = {1.0 * uniform(random, 300, 800), 1.0 * uniform(random, 900, 2200),
                                       1.0 * uniform(random, 2300, 3300)};
        for (int i = 0; i < length; i++) {
            double const progress = static_cast<double>(i) / length;
            phase += pitch_hz * (1 + glide * progress) / rate;
            double excitation = kind == 1 ? uniform(random, -1000, 1000) / 8000.0 : 0;
            if (phase >= 1) {
                phase -= 1;
                excitation += kind > 1 ? 1 : 0;
            }
            double sum = 0;
            for (int f = 0; f < 3; f++) {
                double* const y = history[f];
                double const radius = 0.97, angle = 2 * std::numbers::pi * formants_hz[f] / rate;
                double const next = excitation + 2 * radius * std::cos(angle) * y[0] - radius * radius * y[1];
                y[1] = y[0];
                sum += y[0] = next;
            }
            raw.push_back(sum * std::sin(std::numbers::pi * progress));
        }
    }
    raw.resize(static_cast<std::size_t>(n));
    auto const [lowest, highest] = std::ranges::minmax(raw);
    double const loudest = std::max({1e-9, -lowest, highest});
    samples out;
    for (double const value : raw)
        out.push_back(rounded(value / loudest * peak));
    return out;
}

/// What a coder must survive and reproduce, n samples of each.
inline std::vector<named> assortment(int n, int peak, unsigned seed) {
    std::string const with_seed = " seed " + std::to_string(seed);
    return {
        {"silence", silence(n)},
        {"speech" + with_seed, speech_like(n, peak, seed)},
        {"quiet speech" + with_seed, speech_like(n, peak / 50, seed + 1)},
        {"noise" + with_seed, noise(n, peak, seed)},
        {"quiet noise" + with_seed, noise(n, peak / 100, seed + 1)},
        {"square of 2 samples", square(n, 1, peak)},
        {"square of 8 samples", square(n, 4, peak)},
        {"square of 100 samples", square(n, 50, peak)},
        {"square of 8000 samples", square(n, 4000, peak)},
        {"constant", samples(static_cast<std::size_t>(n), static_cast<std::int16_t>(-peak - 1))},
        {"sweep", sweep(n, peak)},
        {"quiet sweep", sweep(n, peak / 30)},
    };
}

/// n values of `bits` bits: patterns of `period` random values, each repeated up to `hold` times.
inline bytes codes(int n, int bits, int hold, unsigned seed, int period = 1) {
    std::mt19937 random(seed);
    bytes out, pattern(static_cast<std::size_t>(period));
    while (out.size() < static_cast<std::size_t>(n)) {
        for (std::uint8_t& value : pattern)
            value = static_cast<std::uint8_t>(uniform(random, 0, (1 << bits) - 1));
        for (int times = uniform(random, 1, hold); times > 0; times--)
            out.insert(out.end(), pattern.begin(), pattern.end());
    }
    out.resize(static_cast<std::size_t>(n));
    return out;
}

}  // namespace signals
