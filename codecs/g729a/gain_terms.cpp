#include "codecs/g729a/gain_terms.h"

#include <algorithm>

#include "codecs/g729a/dimensions.h"
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

// start + 2 sum of x y; when anything clips on the way, the same with reduced[i] = y[i] / 4 in its place (and
// x, when x is y).
normalised_sum correlate(int32_t start, int16_t const x[subframe_size], int16_t const y[subframe_size],
                         int16_t const reduced[subframe_size]) {
    int32_t sum = start;
    bool clipped = false;
    for (int i = 0; i < subframe_size; ++i) {
        int32_t const product = L_mult(x[i], y[i]);
        clipped |= __builtin_add_overflow(sum, product, &sum) || (product & 1) != 0;
    }
    if (!clipped)
        return normalise(sum);
    bool const power = x == y;
    normalised_sum result = normalise(L_mac_sum(start, power ? reduced : x, reduced, subframe_size));
    result.exponent -= power ? 4 : 2;
    return result;
}

}  // namespace

int16_t G_pitch(int16_t const xn[subframe_size], int16_t const y1[subframe_size], gain_terms& terms) {
    int16_t reduced[subframe_size];
    for (int i = 0; i < subframe_size; ++i)
        reduced[i] = static_cast<int16_t>(y1[i] >> 2);
    normalised_sum const yy = correlate(1, y1, y1, reduced);
    normalised_sum const xy = correlate(0, xn, y1, reduced);
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

void Corr_xy2(int16_t const xn[subframe_size], int16_t const y1[subframe_size],
              int16_t const y2[subframe_size], gain_terms& terms) {
    int16_t y2_q9[subframe_size];
    for (int i = 0; i < subframe_size; ++i)
        y2_q9[i] = static_cast<int16_t>(y2[i] >> 3);
    normalised_sum const yy = normalise(L_mac_sum(1, y2_q9, y2_q9, subframe_size));
    normalised_sum const xy = normalise(L_mac_sum(1, xn, y2_q9, subframe_size));
    normalised_sum const cross = normalise(L_mac_sum(1, y1, y2_q9, subframe_size));
    terms.mantissa[2] = yy.mantissa;
    terms.exponent[2] = yy.exponent + 3;
    terms.mantissa[3] = negate(xy.mantissa);
    terms.exponent[3] = xy.exponent - 7;
    terms.mantissa[4] = cross.mantissa;
    terms.exponent[4] = cross.exponent - 7;
}

}  // namespace g729a
