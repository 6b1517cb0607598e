#pragma once

#include <cstdint>

#include "codecs/g729a/algebraic_codebook.h"

// Search of the fixed codebook (G.729 A.3.8): depth first, two pulses at a time.

namespace g729a {

// Finds the codeword whose filtered pulses come nearest to the target xn2[0..39]. h[0..39] (Q12) is the
// impulse response, which is sharpened (t0 samples, sharp Q14) on the way. code (Q13) gets the sharpened
// codeword, y2 (Q12) the same filtered.
algebraic_code ACELP_Code_A(int16_t const xn2[40], int16_t h[40], int t0, int16_t sharp, int16_t code[40],
                            int16_t y2[40]);

}  // namespace g729a
