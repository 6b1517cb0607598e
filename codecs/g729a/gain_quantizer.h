#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/pitch_gain.h"

/// Quantization of both gains by a conjugate-structure codebook (G.729 3.9, 4.1.5). The fixed codebook's gain is
/// coded as a correction of what the last subframes predict. code is the subframe's fixed codebook vector, Q13;
/// past_qua_en holds the last prediction errors, Q10 dB, newest first, and moves on with each call.
namespace g729a {

constexpr int16_t gain_error_at_rest = -14336;  ///< Q10, -14 dB (3.9.1)

/// Both gains and the index GA GB as transmitted.
struct quantized_gains {
    int16_t index;
    int16_t pitch;  ///< Q14
    int16_t code;   ///< Q1
};

/// Finds the gains with the least error; with taming, pitch gains below 0.9999 only.
quantized_gains Qua_gain(int16_t const code[subframe_size], gain_terms const& terms, bool taming,
                         int16_t past_qua_en[gain_memory]);

/// The gains of a received index, of which the lowest 7 bits count.
quantized_gains Dec_gain(int16_t index, int16_t const code[subframe_size], int16_t past_qua_en[gain_memory]);

/// The prediction error of a lost frame: the mean of the last ones less 4 dB, at least -14 dB (4.4.3).
void Gain_update_erasure(int16_t past_qua_en[gain_memory]);

}  // namespace g729a
