#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// Adaptive codebook (G.729 3.7, A.3.7, 4.1.3): the past excitation at the pitch delay that fits best, how the delay is
/// transmitted, and the excitation that the codebook goes on with.
///
/// exc points to the first sample of a subframe in an excitation buffer; exc[-exc_past..-1] is its past.
namespace g729a {

/// Pitch delay of t0 + frac / 3 samples, t0 19..144, frac -1..1.
struct pitch_delay {
    int t0;
    int frac;
};

/// First and last integer delay of a search, in samples.
struct delay_range {
    int min;
    int max;
};

/// Delays that the first subframe is searched for: 3 to either side of the open-loop estimate (A.3.7).
delay_range first_range(int open_loop_delay);
/// Delays that P2 can express after the first subframe's integer delay: ten from 5 below it on (3.7, 4.1.3).
delay_range second_range(int first_t0);

/// P1 and P2 of a delay (3.7.2): thirds up to 85 samples and whole samples above; thirds from range.min on.
int16_t encode_first_delay(pitch_delay delay);
int16_t encode_second_delay(pitch_delay delay, delay_range range);
/// The reverse (4.1.3), P1 0..255 and P2 0..31; t0 is within 19..144 for any value.
pitch_delay decode_first_delay(int p1);
pitch_delay decode_second_delay(int p2, int first_t0);

/// dn = the target xn filtered backwards through the impulse response h (Q12), scaled to at most 13 bits and sign
/// (3.7.1, 3.8.1).
void backward_filter(int16_t const xn[subframe_size], int16_t const h[subframe_size], int16_t dn[subframe_size]);

/// exc[0..39] = the excitation delayed. At delays below a subframe and a filter's half, 50 samples, the new samples
/// are their own past.
void Pred_lt_3(int16_t* exc, int t0, int frac);

/// Finds the delay within range (at most ten) whose excitation through h (Q12) correlates best with the target xn.
/// Fractions are tried unless long_is_integer and the delay is above 84. exc[0..39] enters as LP residual and leaves
/// as the adaptive vector.
pitch_delay Pitch_fr3_fast(int16_t* exc, int16_t const xn[subframe_size], int16_t const h[subframe_size],
                           delay_range range, bool long_is_integer);

/// exc[0..39] = gain_pit exc + gain_code code (3.10, 4.1.6); gain_pit Q14 0..29491, gain_code Q1 >= 0, code Q13.
void build_excitation(int16_t exc[subframe_size], int16_t const code[subframe_size], int16_t gain_pit,
                      int16_t gain_code);

}  // namespace g729a
