#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// The pitch gain before quantization (G.729 3.7.3), its taming, and the correlations that the search for the
/// quantized gains starts from (3.9.2).
namespace g729a {

/// Five values mantissa * 2^-exponent up to a common scale: y1 y1, -2 xn y1, y2 y2, -2 xn y2, 2 y1 y2, with xn the
/// target, y1 and y2 the filtered vectors of the adaptive and the fixed codebook.
struct gain_terms {
    static constexpr int count = 5;
    int16_t mantissa[count];
    int exponent[count];
};

/// The gain (Q14, 0..1.2) that brings y1 nearest to xn. Fills the first two terms.
int16_t G_pitch(int16_t const xn[subframe_size], int16_t const y1[subframe_size], gain_terms& terms);

/// Fills the other three terms. y2 is Q12.
void Corr_xy2(int16_t const xn[subframe_size], int16_t const y1[subframe_size], int16_t const y2[subframe_size],
              gain_terms& terms);

/// Taming: a bound of what a lost frame's excitation error can grow to, kept for zones of 40 samples of past
/// excitation, newest first, keeps coder and decoder from drifting apart on tones.
constexpr int32_t exc_err_at_rest = 16384;   ///< Q14, 1.0
constexpr int16_t tamed_pitch_gain = 15564;  ///< Q14, 0.95

/// Whether the gain for a delay of t0 + frac / 3 samples has to be tamed. exc_err is Q14.
bool test_err(int32_t const exc_err[taming_zones], int t0, int frac);

/// Moves on by one subframe with the quantized gain (Q14) and the integer delay.
void update_exc_err(int32_t exc_err[taming_zones], int16_t gain_pit, int t0);

}  // namespace g729a
