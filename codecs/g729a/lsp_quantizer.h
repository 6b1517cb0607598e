#pragma once

#include "codecs/g729a/lsp_predictor.h"

// Search of the LSF quantizer (G.729 3.2.4): a first stage of ten coefficients, a second stage split in
// halves, once for each of the two MA predictors.

namespace g729a {

// The codes for lsf[0..9] (Q13 radians) after the frames in freq_prev, which stays as it is.
lsf_codes quantize_lsf(int16_t const lsf[10], int16_t const freq_prev[4][10]);

}  // namespace g729a
