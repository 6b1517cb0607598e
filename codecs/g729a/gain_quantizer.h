#pragma once

#include <cstdint>

#include "codecs/g729a/gain_terms.h"

// Quantization of both gains by a conjugate-structure codebook (G.729 3.9.2, 3.9.3, 4.1.5).

namespace g729a {

// Both gains and the index GA GB as transmitted.
struct quantized_gains {
    int16_t index;
    int16_t pitch;  // Q14
    int16_t code;   // Q1
};

// Finds the gains with the least error for the codeword code (Q13); with taming, pitch gains below 0.9999
// only. past_qua_en moves on.
quantized_gains Qua_gain(int16_t const code[40], gain_terms const& terms, bool taming,
                         int16_t past_qua_en[4]);

// The gains of a received index. past_qua_en moves on.
quantized_gains Dec_gain(int16_t index, int16_t const code[40], int16_t past_qua_en[4]);

}  // namespace g729a
