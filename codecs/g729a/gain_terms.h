#pragma once

#include <cstdint>

// The pitch gain before quantization and the five correlations of the gain quantizer (G.729 3.7.3, 3.9.2).

namespace g729a {

// Values mantissa * 2^-exponent up to a common scale: y1 y1, -2 xn y1, y2 y2, -2 xn y2, 2 y1 y2, with xn the
// target, y1 and y2 the filtered adaptive and fixed codebook vectors.
struct gain_terms {
    int16_t mantissa[5];
    int exponent[5];
};

// The gain (Q14, 0..1.2) that brings y1 nearest to xn. Fills the first two terms.
int16_t G_pitch(int16_t const xn[40], int16_t const y1[40], gain_terms& terms);

// Fills the other three terms. y2 is Q12.
void Corr_xy2(int16_t const xn[40], int16_t const y1[40], int16_t const y2[40], gain_terms& terms);

}  // namespace g729a
