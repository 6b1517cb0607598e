#pragma once

#include <cstdint>

// Adaptive codebook: the past excitation at a fractional pitch delay (G.729 3.7.1).

namespace g729a {

// exc[0..39] = the excitation delayed by t0 + frac / 3 samples, t0 19..144, frac -1..1; exc[-t0-10..-1] is
// the past. At delays below 50 samples the new samples are their own past.
void Pred_lt_3(int16_t* exc, int t0, int frac);

}  // namespace g729a
