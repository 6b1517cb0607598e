#pragma once

#include <cstdint>

// Fixed codebook: four pulses of amplitude +-1, one on each of four interleaved tracks (G.729 3.8, 4.1.4).
// Track k = 0, 1, 2 holds the positions k, k + 5, ... k + 35; the fourth pulse has two tracks, from 3 and
// from 4 on.

namespace g729a {

constexpr int pulses = 4;
constexpr int track_step = 5;

// A codeword as transmitted: positions C (13 bits, first pulse lowest), signs S (bit k set: pulse k
// positive).
struct algebraic_code {
    int16_t positions;
    int16_t signs;
};

// code[0..39] (Q13) = the pulses of the codeword.
void Decod_ACELP(algebraic_code transmitted, int16_t code[40]);

// The codeword of four pulses on their tracks.
algebraic_code encode_pulses(int const position[pulses], bool const positive[pulses]);

// Pitch sharpening (3.8, equation 47): x[i] += sharp x[i - t0] from t0 on, sharp Q14. Nothing for t0 above
// 39.
void sharpen(int16_t x[40], int t0, int16_t sharp);

}  // namespace g729a
