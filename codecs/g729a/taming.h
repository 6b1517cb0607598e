#pragma once

#include <cstdint>

// Taming of the pitch gain: a bound of what a lost frame's excitation error can grow to, kept for four zones
// of 40 samples of past excitation, keeps coder and decoder from drifting apart on tones (G.729 3.7.3, 3.9).
// exc_err is Q14, newest zone first.

namespace g729a {

constexpr int32_t exc_err_at_rest = 16384;   // Q14, 1.0
constexpr int16_t tamed_pitch_gain = 15564;  // Q14, 0.95

// Whether the gain for a delay of t0 + frac / 3 samples has to be tamed.
bool test_err(int32_t const exc_err[4], int t0, int frac);

// Moves on by one subframe with the quantized gain (Q14) and the integer delay.
void update_exc_err(int32_t exc_err[4], int16_t gain_pit, int t0);

}  // namespace g729a
