#pragma once

#include <cstdint>

// Prediction of the fixed codebook gain from past frames (G.729 3.9.1), alike in coder and decoder.
// past_qua_en: the last four prediction errors, Q10 dB, newest first.

namespace g729a {

constexpr int16_t gain_error_at_rest = -14336;  // Q10, -14 dB

// gain = mantissa * 2^-exponent.
struct predicted_gain {
    int16_t mantissa;
    int exponent;
};

// Prediction for a codeword code[0..39] (Q13).
predicted_gain Gain_predict(int16_t const past_qua_en[4], int16_t const code[40]);

// correction (Q13) times the predicted gain, Q1.
int16_t corrected_gain(predicted_gain prediction, int32_t correction);

// Remembers correction (Q13) as the newest error.
void Gain_update(int16_t past_qua_en[4], int32_t correction);

// The same for a lost frame: the mean less 4 dB, at least -14 dB (4.4.3).
void Gain_update_erasure(int16_t past_qua_en[4]);

}  // namespace g729a
