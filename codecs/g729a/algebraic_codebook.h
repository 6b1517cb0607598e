#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// Fixed codebook (G.729 3.8, A.3.8, 4.1.4): four pulses of amplitude +-1, one on each of four interleaved tracks.
/// Track k = 0, 1, 2 holds the positions k, k + 5, ... k + 35; the fourth pulse has two tracks, from 3 and from 4 on.
namespace g729a {

constexpr int pulses = 4;
constexpr int track_step = 5;  ///< samples between positions of a track
constexpr int positions_per_track = subframe_size / track_step;

constexpr int16_t sharp_min = 3277;   ///< Q14, 0.2 (equation 47)
constexpr int16_t sharp_max = 13017;  ///< Q14, 0.7945

/// A codeword as transmitted.
struct algebraic_code {
    int16_t positions;  ///< C, 13 bits, first pulse lowest
    int16_t signs;      ///< S, bit k set: pulse k is positive
};

/// Finds the codeword whose filtered pulses come nearest to the target xn2: depth first, two pulses at a time
/// (A.3.8). h (Q12) is the impulse response, which is sharpened (t0 samples, sharp Q14) on the way. code (Q13) gets
/// the sharpened codeword, y2 (Q12) the same filtered.
algebraic_code ACELP_Code_A(int16_t const xn2[subframe_size], int16_t h[subframe_size], int t0, int16_t sharp,
                            int16_t code[subframe_size], int16_t y2[subframe_size]);

/// code (Q13) = the pulses of a codeword, of which only the transmitted bits count.
void Decod_ACELP(algebraic_code transmitted, int16_t code[subframe_size]);

/// Pitch sharpening (3.8, equation 47): x[i] += sharp x[i - t0] from t0 on, sharp Q14. Nothing for t0 of a subframe
/// or more.
void sharpen(int16_t x[subframe_size], int t0, int16_t sharp);

/// Sharpening (Q14) of the subframe after one with this pitch gain (Q14).
int16_t next_sharp(int16_t gain_pit);

}  // namespace g729a
