#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// Quantization of the LSF with moving-average prediction (G.729 3.2.4, 4.1.1): a first stage of ten coefficients, a
/// second stage split in halves, once for each of two predictors. LSF are Q13 radians. freq_prev holds the last
/// outputs of the codebooks, Q13, newest first.
namespace g729a {

/// First content of every row of freq_prev, and the LSF that the decoder starts from: (i + 1) pi / 11, Q13.
inline constexpr int16_t freq_prev_reset[lp_order] = {2339, 4679, 7018, 9358, 11698, 14037, 16377, 18717, 21056, 23396};

/// Codes of a frame's LSF.
struct lsf_codes {
    int mode;   ///< L0, MA predictor, 0 or 1
    int first;  ///< L1, first stage, 0..127
    int low;    ///< L2, second stage, 0..31, coefficients 0..4
    int high;   ///< L3, second stage, 0..31, coefficients 5..9
};

/// The codes for lsf after the frames in freq_prev, which stays as it is.
lsf_codes quantize_lsf(int16_t const lsf[lp_order], int16_t const freq_prev[lsf_memory][lp_order]);

/// lsf_q = quantized LSF of the codes, in order and apart; freq_prev moves on.
void reconstruct_lsf(lsf_codes const& codes, int16_t freq_prev[lsf_memory][lp_order], int16_t lsf_q[lp_order]);

/// Moves freq_prev on as if lsf had been quantized by predictor mode: what a lost frame leaves behind (4.4.1).
void repeat_lsf(int16_t const lsf[lp_order], int mode, int16_t freq_prev[lsf_memory][lp_order]);

}  // namespace g729a
