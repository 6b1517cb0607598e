#pragma once

#include <cstdint>

// The moving-average prediction of the LSF quantizer and the reconstruction of quantized LSF, alike in coder
// and decoder (G.729 3.2.4). All LSF are Q13 radians. freq_prev holds the last four outputs of the
// quantizer's codebooks, newest first.

namespace g729a {

// Codes of a frame's LSF.
struct lsf_codes {
    int mode;   // MA predictor, 0 or 1
    int first;  // first stage L1, 0..127
    int low;    // second stage L2, 0..31, coefficients 0..4
    int high;   // second stage L3, 0..31, coefficients 5..9
};

// Puts gap between the neighbours q[from - 1] and q[from] up to q[to - 1] and q[to], moving both by half.
void rearrange(int16_t q[10], int from, int to, int gap);

// r[0..9] = what the codebooks have to give so that lsf comes out.
void lsf_residual(int16_t const lsf[10], int mode, int16_t const freq_prev[4][10], int16_t r[10]);

// Drops the oldest row of freq_prev and puts q in front.
void push_lsf(int16_t const q[10], int16_t freq_prev[4][10]);

// lsf_q[0..9] = quantized LSF of the codes, in order and apart; freq_prev moves on.
void reconstruct_lsf(lsf_codes const& codes, int16_t freq_prev[4][10], int16_t lsf_q[10]);

}  // namespace g729a
