#include "media/tone_guard.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int window = 160, step = 80;
constexpr int quiet = 100;    // mean magnitude, as for changes of the time scale
constexpr int highest = 512;  // magnitude up to which sums of products fit
constexpr int order = 4;
constexpr int unity = 4096;          // of the coefficients
constexpr int least_rejection = 64;  // 18 dB: two tones in G.711 leave less of themselves
constexpr std::int64_t most_coefficient = 8 * unity;

/// Two tones obey x[n] + x[n-4] = a (x[n-1] + x[n-3]) + b x[n-2], with a = 2 (c1 + c2), b = -2 - 4 c1 c2 and the
/// cosines c of their frequencies.
struct predictor {
    std::int64_t a = 0, b = 0;
};

/// Whether both roots of c^2 - a/2 c - (b + 2) / 4 are cosines of 300 to 2150 Hz.
bool in_band(predictor const& p) {
    constexpr std::int64_t low = -486, high = 3983;  // cosines of 2150 and 300 Hz
    auto const value = [&](std::int64_t c) { return 4 * c * c - 2 * p.a * c - (p.b + 2 * unity) * unity; };
    return value(low) > 0 && value(high) > 0 && p.a > 4 * low && p.a < 4 * high;
}

bool is_tones(std::int16_t const* x) {
    int loudest = 0, shift = 0;
    for (int i = 0; i < window; i++)
        loudest = std::max(loudest, std::abs(int{x[i]}));
    while (loudest >> shift > highest)
        shift++;
    std::int64_t uv = 0, uw = 0, vv = 0, vw = 0, ww = 0;
    for (int i = order; i < window; i++) {
        int const u = (x[i] >> shift) + (x[i - 4] >> shift), v = (x[i - 1] >> shift) + (x[i - 3] >> shift);
        int const w = x[i - 2] >> shift;
        uv += u * v, uw += u * w, vv += v * v, vw += v * w, ww += w * w;
    }
    std::int64_t const determinant = vv * ww - vw * vw;
    if (loudest < quiet || determinant <= unity)
        return false;
    predictor p;
    p.a = (uv * ww - uw * vw) / (determinant / unity);
    p.b = (uw * vv - uv * vw) / (determinant / unity);
    if (std::abs(p.a) > most_coefficient || std::abs(p.b) > most_coefficient || !in_band(p))
        return false;
    std::int64_t left = 0;
    for (int i = order; i < window; i++) {
        std::int64_t const predicted = p.a * ((x[i - 1] >> shift) + (x[i - 3] >> shift)) + p.b * (x[i - 2] >> shift);
        std::int64_t const error = (x[i] >> shift) + (x[i - 4] >> shift) - predicted / unity;
        left += error * error;
    }
    return left * least_rejection < ww;
}

}  // namespace

bool holds_tones(std::int16_t const* x, int n) {
    for (int at = 0; at + window <= n; at += step)
        if (is_tones(x + at))
            return true;
    return false;
}
