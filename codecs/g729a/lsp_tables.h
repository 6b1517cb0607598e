#pragma once

#include <cstdint>

// Constant tables of LP analysis and of the line spectral pairs. The integers are those of ITU-T G.729 Annex
// A and are not recomputed from their formulas: the last place of each is part of the bit-exact result.

namespace g729a {

// LP analysis window: 200 samples of rising half Hamming, 40 of a falling quarter cosine, Q15 (G.729 3.2.1)
extern int16_t const hamwindow[240];
// lag window for lags 1..10, upper part; 60 Hz bandwidth expansion with the white-noise factor 1.0001 folded
// in, Q15 (G.729 3.2.1)
extern int16_t const lag_h[10];
// lag window, lower part: the value is lag_h / 2^15 + lag_l / 2^30 (G.729 3.2.1)
extern int16_t const lag_l[10];
// grid of the root search: cos(pi i / 50), ends clipped to +-32760, Q15 (G.729 A.3.2.3)
extern int16_t const grid[51];
// cos(pi i / 64), for both directions between LSP and LSF, Q15 (G.729 3.2.4 / A.3.2.4)
extern int16_t const table2[64];
// slope of the cosine in interval i, LSF to LSP, Q12 (G.729 3.2.4)
extern int16_t const slope_cos[64];
// slope of the arc cosine in interval i, LSP to LSF, Q11 (G.729 3.2.4)
extern int16_t const slope_acos[64];
// first stage LSF codebook L1, radians, Q13 (G.729 3.2.4)
extern int16_t const lspcb1[128][10];
// second stage, radians: columns 0..4 are L2, columns 5..9 are L3, Q13 (G.729 3.2.4)
extern int16_t const lspcb2[32][10];
// MA predictors [mode][age, newest first][coefficient], Q15 (G.729 3.2.4)
extern int16_t const fg[2][4][10];
// 1 minus the sum of the four predictor coefficients, Q15 (G.729 3.2.4)
extern int16_t const fg_sum[2][10];
// reciprocal of fg_sum, Q12 (G.729 3.2.4)
extern int16_t const fg_sum_inv[2][10];
// first content of the MA memories: (i + 1) pi / 11, Q13 (G.729 3.2.4)
extern int16_t const freq_prev_reset[10];
// LSP that coder and decoder start from, Q15 (initial values of the fixed-point software)
extern int16_t const lsp_init[10];

}  // namespace g729a
