#pragma once

#include <cstdint>

// Closed-loop pitch search (G.729 A.3.7) and what the fixed codebook search and the decoder share with it.

namespace g729a {

// Pitch delay t0 + frac / 3 samples, frac -1..1.
struct pitch_delay {
    int t0;
    int frac;
};

// First and last integer delay of a search, in samples.
struct delay_range {
    int min;
    int max;
};

// The width + 1 delays from t0 - below on, moved into pit_min..pit_max where necessary (3.7, 4.1.3).
delay_range search_range(int t0, int below, int width);

// dn[0..39] = xn filtered backwards through the impulse response h (Q12), scaled to at most 13 bits and sign
// (3.7.1, 3.8.1).
void backward_filter(int16_t const xn[40], int16_t const h[40], int16_t dn[40]);

// Finds the delay within range (at most ten) whose excitation through h (Q12) correlates best with the target
// xn. Fractions are tried unless long_is_integer and the delay is above 84. exc[-154..-1] is the past
// excitation, exc[0..39] enters as LP residual and leaves as the adaptive vector.
pitch_delay Pitch_fr3_fast(int16_t* exc, int16_t const xn[40], int16_t const h[40], delay_range range,
                           bool long_is_integer);

}  // namespace g729a
