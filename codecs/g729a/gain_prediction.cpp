#include "codecs/g729a/gain_prediction.h"

#include <algorithm>

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/dspfunc.h"
#include "codecs/g729a/oper_32b.h"
#include "codecs/g729a/tables.h"

namespace g729a {

namespace {

constexpr int16_t db_per_octave = 24660;  // Q13, 10 log10(2)
constexpr int16_t octaves_per_db = 5439;  // Q15, log2(10) / 20

void push(int16_t past_qua_en[4], int16_t error) {
    std::copy_backward(past_qua_en, past_qua_en + 3, past_qua_en + 4);
    past_qua_en[0] = error;
}

}  // namespace

predicted_gain Gain_predict(int16_t const past_qua_en[4], int16_t const code[subframe_size]) {
    int32_t energy = 0;
    for (int i = 0; i < subframe_size; ++i)
        energy = L_mac(energy, code[i], code[i]);
    int32_t sum = Mpy_32_16(Log2(energy), -db_per_octave);
    sum = L_mac(sum, 32588, 32);  // 127.298 dB, Q14: mean energy 30 dB, less the codeword's scale
    sum = L_shl(sum, 10);         // Q24
    for (int i = 0; i < 4; ++i)
        sum = L_mac(sum, pred[i], past_qua_en[i]);
    int32_t const log2_gain = L_mult(extract_h(sum), octaves_per_db) >> 8;  // Q16
    return {extract_l(Pow2(14, dpf_lo(log2_gain))), 14 - extract_h(log2_gain)};
}

int16_t corrected_gain(predicted_gain prediction, int32_t correction) {
    int32_t const product = L_mult(extract_l(correction >> 1), prediction.mantissa);
    return extract_h(L_shl(product, 4 - prediction.exponent));
}

void Gain_update(int16_t past_qua_en[4], int32_t correction) {
    int32_t const log2_correction = Log2(correction) - 13 * 65536;  // Q16
    push(past_qua_en, mult(extract_h(L_shl(log2_correction, 13)), db_per_octave));
}

void Gain_update_erasure(int16_t past_qua_en[4]) {
    int const mean = (past_qua_en[0] + past_qua_en[1] + past_qua_en[2] + past_qua_en[3]) >> 2;
    push(past_qua_en, static_cast<int16_t>(std::max<int>(mean - 4096, gain_error_at_rest)));
}

}  // namespace g729a
