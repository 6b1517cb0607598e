#include "codecs/g729a/closed_loop_pitch.h"

#include <algorithm>
#include <cstring>

#include "codecs/g729a/adaptive_codebook.h"
#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int longest_fractional = 84;  // samples, first subframe
constexpr int widest_range = 10;        // delays

// y[i] = 2 sum of xn[j] h[j - i], j = i..39, for eight values of i from first on. xn is followed by zeros, so
// that the eight sums may have one length.
template <int first>
void correlate_eight(int16_t const* xn, int16_t const* h, int32_t* y) {
    for (int i = first; i < first + 8; ++i)
        y[i] = 2 * dot<subframe_size - first>(h, xn + i);
}

// The correlation of dn with a vector; fits says that it cannot clip.
int32_t correlate(int16_t const dn[subframe_size], int16_t const* x, bool fits) {
    return fits ? 2 * dot<subframe_size>(dn, x) : L_mac_sum(0, dn, x, subframe_size);
}

}  // namespace

delay_range search_range(int t0, int below, int width) {
    int const min = std::clamp(t0 - below, pit_min, pit_max - width);
    return {min, min + width};
}

void backward_filter(int16_t const xn[subframe_size], int16_t const h[subframe_size],
                     int16_t dn[subframe_size]) {
    int32_t y[subframe_size];
    if (sums_fit(sum_of_magnitudes(h, subframe_size), peak<subframe_size>(xn))) {
        int16_t padded[subframe_size + 8] = {};
        std::memcpy(padded, xn, subframe_size * sizeof *xn);
        correlate_eight<0>(padded, h, y);
        correlate_eight<8>(padded, h, y);
        correlate_eight<16>(padded, h, y);
        correlate_eight<24>(padded, h, y);
        correlate_eight<32>(padded, h, y);
    } else {
        for (int i = 0; i < subframe_size; ++i)
            y[i] = L_mac_sum(0, xn + i, h, subframe_size - i);
    }
    int32_t highest = 0;
    for (int i = 0; i < subframe_size; ++i)
        highest = std::max(highest, L_abs(y[i]));
    int const shift = 18 - std::min(norm_l(highest), 16);
    for (int i = 0; i < subframe_size; ++i)
        dn[i] = extract_l(y[i] >> shift);
}

pitch_delay Pitch_fr3_fast(int16_t* exc, int16_t const xn[subframe_size], int16_t const h[subframe_size],
                           delay_range range, bool long_is_integer) {
    int16_t dn[subframe_size];
    backward_filter(xn, h, dn);
    int32_t const magnitudes = sum_of_magnitudes(dn, subframe_size);

    constexpr int window = (subframe_size + widest_range + 7) / 8 * 8;
    bool fits = sums_fit(magnitudes, peak<window>(exc - range.max));
    pitch_delay best = {range.min, 0};
    int32_t highest = min_32;
    for (int t = range.min; t <= range.max; ++t) {
        int32_t const correlation = correlate(dn, exc - t, fits);
        if (correlation > highest) {
            highest = correlation;
            best.t0 = t;
        }
    }

    Pred_lt_3(exc, best.t0, 0);
    if (long_is_integer && best.t0 > longest_fractional)
        return best;
    fits = sums_fit(magnitudes, peak<subframe_size>(exc));
    highest = correlate(dn, exc, fits);
    int16_t best_vector[subframe_size];
    std::memcpy(best_vector, exc, sizeof best_vector);
    for (int frac = -1; frac <= 1; frac += 2) {
        Pred_lt_3(exc, best.t0, frac);
        fits = sums_fit(magnitudes, peak<subframe_size>(exc));
        int32_t const correlation = correlate(dn, exc, fits);
        if (correlation > highest) {
            highest = correlation;
            best.frac = frac;
            std::memcpy(best_vector, exc, sizeof best_vector);
        }
    }
    std::memcpy(exc, best_vector, sizeof best_vector);
    return best;
}

}  // namespace g729a
