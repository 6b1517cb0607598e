#include "codecs/g729a/adaptive_codebook.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// Interpolation filter b30, resolution 1/3, Q15 (3.7.1).
constexpr int16_t inter_3l[31] = {29443, 25207, 14701, 3143, -4402, -5850, -2783, 1211, 3130, 2259, 0,
                                  -1652, -1666, -464,  756,  1099,  550,   -245,  -634, -451, 0,    308,
                                  296,   78,    -120,  -165, -79,   34,    91,    70,   0};

constexpr int half_taps = 10;
constexpr int all_taps = 2 * half_taps;

// Q15 coefficients of one third in the order of the samples, the latest last.
void select_phase(int phase, int16_t c[all_taps]) {
    for (int i = 0; i < half_taps; ++i) {
        c[half_taps - 1 - i] = inter_3l[phase + 3 * i];
        c[half_taps + i] = inter_3l[3 - phase + 3 * i];
    }
}

// The same sum with clipping after every product, which goes from the middle outwards.
int32_t clipping_sum(int16_t const* x, int16_t const c[all_taps]) {
    int32_t sum = 0;
    for (int i = 0; i < half_taps; ++i) {
        sum = L_mac(sum, x[half_taps - 1 - i], c[half_taps - 1 - i]);
        sum = L_mac(sum, x[half_taps + i], c[half_taps + i]);
    }
    return sum;
}

// The width + 1 delays from t0 - below on, moved into pit_min..pit_max where necessary (3.7).
delay_range search_range(int t0, int below, int width) {
    int const min = std::clamp(t0 - below, pit_min, pit_max - width);
    return {min, min + width};
}

// The correlation of dn with a vector; fits says that it cannot clip.
int32_t correlate(int16_t const dn[subframe_size], int16_t const* x, bool fits) {
    return fits ? 2 * dot<subframe_size>(dn, x) : L_mac_sum(0, dn, x, subframe_size);
}

constexpr int longest_fractional = 84;  // samples, first subframe
constexpr int widest_range = 10;        // delays

}  // namespace

delay_range first_range(int open_loop_delay) {
    return search_range(open_loop_delay, 3, 6);
}

delay_range second_range(int first_t0) {
    return search_range(first_t0, 5, 9);
}

int16_t encode_first_delay(pitch_delay delay) {
    return static_cast<int16_t>(delay.t0 <= 85 ? 3 * delay.t0 - 58 + delay.frac : delay.t0 + 112);
}

int16_t encode_second_delay(pitch_delay delay, delay_range range) {
    return static_cast<int16_t>(3 * (delay.t0 - range.min) + 2 + delay.frac);
}

pitch_delay decode_first_delay(int p1) {
    if (p1 >= 197)
        return {p1 - 112, 0};
    int const t0 = (p1 + 2) / 3 + 19;
    return {t0, p1 - 3 * t0 + 58};
}

pitch_delay decode_second_delay(int p2, int first_t0) {
    int const offset = (p2 + 2) / 3 - 1;
    return {second_range(first_t0).min + offset, p2 - 2 - 3 * offset};
}

void Pred_lt_3(int16_t* exc, int t0, int frac) {
    int const phase = frac > 0 ? 3 - frac : -frac;
    int16_t c[all_taps];
    select_phase(phase, c);
    int16_t const* x = exc - t0 - (frac > 0 ? 1 : 0) - (half_taps - 1);

    // Magnitudes of a phase's coefficients add up to 59398 at most. At short delays outputs are samples for later ones,
    // though not for the ten next to them: as many at a time as the delay allows.
    constexpr int32_t limit = fitting_peak(59398);
    int const independent = (t0 + (frac > 0 ? 1 : 0) - half_taps) / correlation_block * correlation_block;
    bool fits = within<all_taps - 1>(x, limit);
    for (int n = 0, count = 0; n < subframe_size; n += count) {
        count = std::min(independent, subframe_size - n);
        for (int i = 0; fits && i < count; i += correlation_block)
            fits = within<correlation_block>(x + n + i + all_taps - 1, limit);
        if (fits) {
            int32_t sum[subframe_size];
            correlate_20(c, x + n, sum, count);
            for (int i = 0; i < count; ++i)
                exc[n + i] = static_cast<int16_t>((sum[i] + 0x4000) >> 15);
        } else {
            for (int i = n; i < n + count; ++i)
                exc[i] = round(clipping_sum(x + i, c));
        }
    }
}

void backward_filter(int16_t const xn[subframe_size], int16_t const h[subframe_size], int16_t dn[subframe_size]) {
    bool const fits = within<subframe_size>(xn, fitting_peak(sum_of_magnitudes<subframe_size>(h)));
    int32_t y[subframe_size];  // 2 y when the sums may clip
    if (fits) {
        int16_t padded[subframe_size + 24] = {};  // as far as the correlations look
        std::memcpy(padded, xn, subframe_size * sizeof *xn);
        correlate_20(h, padded, y, 40);
        add_correlations_20(h + 20, padded + 20, y, 24);
    } else {
        for (int i = 0; i < subframe_size; ++i)
            y[i] = L_mac_sum(0, xn + i, h, subframe_size - i);
    }
    uint32_t magnitudes = 0;
    for (int32_t const value : y) {
        uint32_t const sign = static_cast<uint32_t>(value >> 31);
        magnitudes |= (static_cast<uint32_t>(value) ^ sign) - sign;
    }
    int const halved = fits ? 1 : 0;
    int const shift = 18 - std::clamp(std::countl_zero(magnitudes) - 1 - halved, 0, 16) - halved;
    for (int i = 0; i < subframe_size; ++i)
        dn[i] = extract_l(y[i] >> shift);
}

pitch_delay Pitch_fr3_fast(int16_t* exc, int16_t const xn[subframe_size], int16_t const h[subframe_size],
                           delay_range range, bool long_is_integer) {
    int16_t dn[subframe_size];
    backward_filter(xn, h, dn);
    int32_t const limit = fitting_peak(sum_of_magnitudes<subframe_size>(dn));

    bool fits = within<subframe_size + widest_range>(exc - range.max, limit);
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
    fits = within<subframe_size>(exc, limit);
    highest = correlate(dn, exc, fits);
    int16_t best_vector[subframe_size];
    std::memcpy(best_vector, exc, sizeof best_vector);
    for (int frac = -1; frac <= 1; frac += 2) {
        Pred_lt_3(exc, best.t0, frac);
        fits = within<subframe_size>(exc, limit);
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

void build_excitation(int16_t exc[subframe_size], int16_t const code[subframe_size], int16_t gain_pit,
                      int16_t gain_code) {
    // Below 29492 * 2^15 + 2^30 < 2^31 - 2^13, so clipping once at the end is enough.
    for (int i = 0; i < subframe_size; ++i)
        exc[i] = sat16((exc[i] * gain_pit + code[i] * gain_code + 0x2000) >> 14);
}

}  // namespace g729a
