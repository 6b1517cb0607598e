#include "bench/impairment/distance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>
#include <utility>

namespace {

constexpr int frame = 20 * samples_a_ms;
constexpr std::size_t transform_size = 256;
constexpr int edges_hz[] = {100,  200,  300,  400,  510,  630,  770,  920, 1080,
                            1270, 1480, 1720, 2000, 2320, 2700, 3150, 3700};
constexpr std::size_t band_count = std::size(edges_hz) - 1;
constexpr double masked = 1e-3, unheard = 1e-5;  // of the power of the frame, and of the mean

using bands = std::array<double, band_count>;
using spectrum = std::array<std::complex<double>, transform_size>;

/// Radix 2, decimation in time.
void transform(spectrum& x) {
    for (std::size_t i = 1, j = 0; i < transform_size; i++) {
        std::size_t bit = transform_size / 2;
        for (; j & bit; bit /= 2)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(x[i], x[j]);
    }
    for (std::size_t half = 1; half < transform_size; half *= 2)
        for (std::size_t k = 0; k < half; k++) {
            auto const turn = std::polar(1.0, -std::numbers::pi * static_cast<double>(k) / static_cast<double>(half));
            for (std::size_t i = k; i < transform_size; i += 2 * half) {
                std::complex<double> const odd = turn * x[i + half];
                x[i + half] = x[i] - odd;
                x[i] += odd;
            }
        }
}

/// Power in each band around a frame.
bands powers(sound const& x, int at) {
    constexpr int lead = (static_cast<int>(transform_size) - frame) / 2;
    spectrum bins{};
    for (std::size_t i = 0; i < transform_size; i++) {
        int const from = at - lead + static_cast<int>(i);
        double const angle = 2 * std::numbers::pi * static_cast<double>(i) / transform_size;
        if (from >= 0 && from < static_cast<int>(x.size()))
            bins[i] = x[static_cast<std::size_t>(from)] * (0.5 - 0.5 * std::cos(angle));
    }
    transform(bins);
    bands sum{};
    for (std::size_t bin = 0, band = 0; bin < transform_size / 2; bin++) {
        auto const hz = static_cast<double>(bin) * sample_rate / transform_size;
        while (band < band_count && hz >= edges_hz[band + 1])
            band++;
        if (band < band_count && hz >= edges_hz[0])
            sum[band] += std::norm(bins[bin]);
    }
    return sum;
}

double total(bands const& power) {
    return std::accumulate(power.begin(), power.end(), 0.0);
}

double difference_db(bands const& said, bands const& heard, double mean) {
    double const floor = masked * total(said) + unheard * mean;
    double sum = 0;
    for (std::size_t i = 0; i < band_count; i++) {
        double const db = 10 * std::log10((said[i] + floor) / (heard[i] + floor));
        sum += db * db;
    }
    return std::sqrt(sum / band_count);
}

struct frame_pair {
    bands said, heard;
};

std::vector<frame_pair> spoken_frames(sound const& said, sound const& heard, delay_track const& track) {
    std::vector<frame_pair> all;
    for (int at = 0; at + frame <= static_cast<int>(heard.size()); at += frame) {
        int const then = at - track.at(at);
        if (spoken(said, then, frame))
            all.push_back({powers(said, then), powers(heard, at)});
    }
    return all;
}

double mean_power(std::vector<frame_pair> const& frames) {
    double sum = 0;
    for (frame_pair const& one : frames)
        sum += total(one.said);
    return sum / static_cast<double>(frames.size());
}

}  // namespace

double spectral_distance_db(sound const& said, sound const& heard, delay_track const& track) {
    std::vector<frame_pair> const frames = spoken_frames(said, heard, track);
    if (frames.empty())
        return 0;
    double const mean = mean_power(frames);
    double sum = 0;
    for (frame_pair const& one : frames)
        sum += difference_db(one.said, one.heard, mean);
    return sum / static_cast<double>(frames.size());
}
