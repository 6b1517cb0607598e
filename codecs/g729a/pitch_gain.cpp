#include "codecs/g729a/pitch_gain.h"

#include <algorithm>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int16_t highest_pitch_gain = 19661;  // Q14, 1.2

// A normalised sum: value = mantissa * 2^(16 - exponent).
struct normalised_sum {
    int16_t mantissa;
    int exponent;
};

normalised_sum normalise(int32_t sum) {
    int const shift = norm_l(sum);
    return {round(sum << shift), shift};
}

// start + 2 sum of x y when something may clip on the way. When it does, the same with y / 4 in place of y (and of x,
// when x is y).
normalised_sum correlate_clipping(int32_t start, int16_t const x[subframe_size], int16_t const y[subframe_size]) {
    int32_t sum = start;
    bool clipped = false;
    int16_t reduced[subframe_size];
    for (int i = 0; i < subframe_size; ++i) {
        int32_t const product = L_mult(x[i], y[i]);
        clipped |= __builtin_add_overflow(sum, product, &sum) || (product & 1) != 0;
        reduced[i] = static_cast<int16_t>(y[i] >> 2);
    }
    if (!clipped)
        return normalise(sum);
    bool const power = x == y;
    normalised_sum result = normalise(L_mac_sum(start, power ? reduced : x, reduced, subframe_size));
    result.exponent -= power ? 4 : 2;
    return result;
}

constexpr int32_t err_limit = 983040000;  // Q14, 60000

// Zone of a distance into the past excitation, 0..152 samples.
int zone(int distance) {
    return distance / subframe_size;
}

// 1 + gain err, Q14.
int32_t grown(int32_t err, int16_t gain) {
    return L_add(exc_err_at_rest, L_shl(Mpy_32_16(err, gain), 1));
}

}  // namespace

int16_t G_pitch(int16_t const xn[subframe_size], int16_t const y1[subframe_size], gain_terms& terms) {
    int64_t const y1_energy = energy<subframe_size>(y1);
    normalised_sum const yy =
        y1_energy < max_32 / 2 ? normalise(static_cast<int32_t>(1 + 2 * y1_energy)) : correlate_clipping(1, y1, y1);
    normalised_sum const xy = products_fit(energy<subframe_size>(xn), y1_energy)
                                  ? normalise(2 * dot<subframe_size>(xn, y1))
                                  : correlate_clipping(0, xn, y1);
    terms.mantissa[0] = yy.mantissa;
    terms.exponent[0] = yy.exponent - 15;
    terms.mantissa[1] = negate(xy.mantissa);
    if (xy.mantissa <= 0) {
        terms.exponent[1] = 14;
        return 0;
    }
    terms.exponent[1] = xy.exponent - 16;
    int16_t const gain = div_s(xy.mantissa >> 1, yy.mantissa);
    return std::min(shr(gain, xy.exponent - yy.exponent), highest_pitch_gain);
}

void Corr_xy2(int16_t const xn[subframe_size], int16_t const y1[subframe_size], int16_t const y2[subframe_size],
              gain_terms& terms) {
    int16_t y2_q9[subframe_size];
    for (int i = 0; i < subframe_size; ++i)
        y2_q9[i] = static_cast<int16_t>(y2[i] >> 3);
    int32_t const energy_q9 = dot<subframe_size>(y2_q9, y2_q9);  // at most 40 * 2^24
    auto const correlate = [&](int16_t const* x) {
        bool const fits = products_fit(energy<subframe_size>(x), energy_q9);
        return normalise(fits ? 1 + 2 * dot<subframe_size>(x, y2_q9) : L_mac_sum(1, x, y2_q9, subframe_size));
    };
    normalised_sum const yy = normalise(1 + 2 * energy_q9);
    normalised_sum const xy = correlate(xn);
    normalised_sum const cross = correlate(y1);
    terms.mantissa[2] = yy.mantissa;
    terms.exponent[2] = yy.exponent + 3;
    terms.mantissa[3] = negate(xy.mantissa);
    terms.exponent[3] = xy.exponent - 7;
    terms.mantissa[4] = cross.mantissa;
    terms.exponent[4] = cross.exponent - 7;
}

bool test_err(int32_t const exc_err[taming_zones], int t0, int frac) {
    int const delay = frac > 0 ? t0 + 1 : t0;
    int const first = zone(std::max(delay - (subframe_size + 10), 0));
    int const last = zone(delay + 8);
    return *std::max_element(exc_err + first, exc_err + last + 1) > err_limit;
}

void update_exc_err(int32_t exc_err[taming_zones], int16_t gain_pit, int t0) {
    int32_t worst = -1;
    if (t0 < subframe_size) {
        int32_t const once = grown(exc_err[0], gain_pit);
        worst = std::max({worst, once, grown(once, gain_pit)});
    } else {
        for (int z = zone(t0 - subframe_size); z <= zone(t0 - 1); ++z)
            worst = std::max(worst, grown(exc_err[z], gain_pit));
    }
    std::copy_backward(exc_err, exc_err + taming_zones - 1, exc_err + taming_zones);
    exc_err[0] = worst;
}

}  // namespace g729a
