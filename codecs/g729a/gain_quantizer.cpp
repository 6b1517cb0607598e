#include "codecs/g729a/gain_quantizer.h"

#include <algorithm>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/dspfunc.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// MA predictor, newest first, Q13 (3.9.1).
constexpr int16_t pred[gain_memory] = {5571, 4751, 2785, 1556};
constexpr int16_t db_per_octave = 24660;  // Q13, 10 log10(2)
constexpr int16_t octaves_per_db = 5439;  // Q15, log2(10) / 20

// Codebooks GA and GB in internal order: pitch gain Q14, code correction Q13 (3.9.2).
constexpr int rows_1 = 8;
constexpr int rows_2 = 16;
constexpr int16_t gbk1[rows_1][2] = {{1, 1516},    {1551, 2425}, {1831, 5022}, {57, 5404},
                                     {1921, 9291}, {3242, 9949}, {356, 14756}, {2678, 27162}};
constexpr int16_t gbk2[rows_2][2] = {{826, 2005},   {1994, 0},     {5142, 592},   {6160, 2395},
                                     {8091, 4861},  {9120, 525},   {10573, 2966}, {11569, 1196},
                                     {13260, 3256}, {14194, 1630}, {15132, 4914}, {15161, 14276},
                                     {15434, 237},  {16112, 3392}, {17299, 1861}, {18973, 5935}};
// Internal to transmitted index, and back (3.9.3).
constexpr int16_t map1[rows_1] = {5, 1, 4, 7, 3, 0, 6, 2};
constexpr int16_t map2[rows_2] = {4, 6, 0, 2, 12, 14, 8, 10, 15, 11, 9, 13, 7, 3, 1, 5};
constexpr int16_t imap1[rows_1] = {5, 1, 7, 4, 2, 0, 6, 3};
constexpr int16_t imap2[rows_2] = {2, 14, 3, 13, 0, 15, 1, 12, 6, 10, 7, 9, 4, 11, 5, 8};

// Preselection (3.9.2): rows of each codebook that it leaves, and what the optimum is compared with to find the first
// of them, GA Q14, GB Q15.
constexpr int candidates_1 = 4;
constexpr int candidates_2 = 8;
constexpr int16_t thr1[rows_1 - candidates_1] = {10808, 12374, 19778, 32567};
constexpr int16_t thr2[rows_2 - candidates_2] = {14087, 16188, 20274, 21321, 23525, 25232, 27873, 30542};
constexpr int16_t coef_00 = 31881;         // Q10
constexpr int32_t L_coef_01 = 1731217536;  // Q30
constexpr int16_t coef_10 = 31548;         // Q16
constexpr int32_t L_coef_11 = 1822990272;  // Q35
constexpr int16_t inv_coef = -17103;       // Q19

constexpr int16_t tamed_optimum = 481;  // Q9, 0.94
constexpr int16_t tamed_limit = 16383;  // Q14, 0.9999

// value = mantissa * 2^-exponent.
struct scaled {
    int16_t mantissa;
    int exponent;
};

void push(int16_t past_qua_en[gain_memory], int16_t error) {
    std::copy_backward(past_qua_en, past_qua_en + gain_memory - 1, past_qua_en + gain_memory);
    past_qua_en[0] = error;
}

// Gain that is predicted for a codeword (3.9.1).
scaled Gain_predict(int16_t const past_qua_en[gain_memory], int16_t const code[subframe_size]) {
    int64_t const code_energy = std::min<int64_t>(2 * energy<subframe_size>(code), max_32);
    int32_t sum = Mpy_32_16(Log2(static_cast<int32_t>(code_energy)), -db_per_octave);
    sum = L_mac(sum, 32588, 32);  // 127.298 dB, Q14: mean energy 30 dB, less the codeword's scale
    sum = L_shl(sum, 10);         // Q24
    for (int i = 0; i < gain_memory; ++i)
        sum = L_mac(sum, pred[i], past_qua_en[i]);
    int32_t const log2_gain = L_mult(extract_h(sum), octaves_per_db) >> 8;  // Q16
    return {extract_l(Pow2(14, dpf_lo(log2_gain))), 14 - extract_h(log2_gain)};
}

// correction (Q13) times the predicted gain, Q1.
int16_t corrected_gain(scaled prediction, int32_t correction) {
    int32_t const product = L_mult(extract_l(correction >> 1), prediction.mantissa);
    return extract_h(L_shl(product, 4 - prediction.exponent));
}

// Remembers correction (Q13) as the newest error.
void Gain_update(int16_t past_qua_en[gain_memory], int32_t correction) {
    int32_t const log2_correction = Log2(correction) - 13 * 65536;  // Q16
    push(past_qua_en, mult(extract_h(L_shl(log2_correction, 13)), db_per_octave));
}

// 2^factor a b - c d / 2 up to a common power of two, the products shifted right by guard bits for headroom.
scaled difference(scaled a, scaled b, scaled c, scaled d, int factor, int guard) {
    int32_t const minuend = L_mult(a.mantissa, b.mantissa);
    int32_t const subtrahend = L_mult(c.mantissa, d.mantissa);
    int const x1 = a.exponent + b.exponent - factor;
    int const x2 = c.exponent + d.exponent + 1;
    int const x = std::min(x1, x2);
    int32_t const value = L_sub(L_shr(minuend, x1 - x + guard), L_shr(subtrahend, x2 - x + guard));
    int const shift = norm_l(value);
    return {extract_h(L_shl(value, shift)), x - guard + shift - 16};
}

struct gain_pair {
    int16_t pitch;  // Q9
    int16_t code;   // Q2
};

// The gains with the least error, were they not quantized.
gain_pair optimum(gain_terms const& terms) {
    scaled g[gain_terms::count];
    for (int i = 0; i < gain_terms::count; ++i)
        g[i] = {terms.mantissa[i], terms.exponent[i]};
    scaled const denominator = difference(g[0], g[2], g[4], g[4], 1, 0);
    int16_t const inverse = negate(div_s(16384, denominator.mantissa));
    int const inverse_exponent = 29 - denominator.exponent;
    auto const divide = [&](scaled numerator, int q) {
        int32_t const quotient = L_mult(numerator.mantissa, inverse);
        return extract_h(L_shr(quotient, numerator.exponent + inverse_exponent - q));
    };
    return {divide(difference(g[2], g[1], g[3], g[4], 0, 1), 24), divide(difference(g[0], g[3], g[1], g[4], 0, 1), 17)};
}

// How many thresholds, each times gain and shifted, value has passed.
template <int n>
int passed(int16_t const (&thresholds)[n], int16_t gain, int shift, int32_t value) {
    int count = 0;
    while (count < n) {
        int32_t const threshold = L_mult(thresholds[count], gain) >> shift;
        if (gain > 0 ? value <= threshold : value >= threshold)
            break;
        ++count;
    }
    return count;
}

// First rows of both codebooks that the search looks at.
struct preselection {
    int first_1;
    int first_2;
};

preselection preselect(gain_pair best, scaled prediction) {
    int16_t const gain = prediction.exponent >= 4
                             ? shr(prediction.mantissa, prediction.exponent - 4)
                             : extract_h(L_shl(prediction.mantissa, 20 - prediction.exponent));  // Q4
    int32_t const pitch = L_mult(coef_00, best.pitch);

    int16_t const sum = extract_h(L_add(pitch, L_coef_11 >> 15));
    int32_t const x = L_sub(L_shl(best.code, 7), L_mult(sum, gain));
    int16_t const rest = mult(extract_h(L_sub(pitch, L_coef_01 >> 10)), gain);
    int32_t const y = L_sub(L_mult(rest, coef_10), L_mult(coef_00, best.code) >> 3);
    return {passed(thr1, gain, 3, L_mult(extract_h(L_shl(y, 2)), inv_coef)),
            passed(thr2, gain, 5, L_mult(extract_h(L_shl(x, 2)), inv_coef))};
}

// The five terms with one exponent, for gains in the scale of the codebooks.
void align(gain_terms const& terms, int gain_exponent, int32_t aligned[gain_terms::count]) {
    int const exponent[gain_terms::count] = {
        terms.exponent[0] + 13, terms.exponent[1] + 14, terms.exponent[2] + 2 * gain_exponent - 21,
        terms.exponent[3] + gain_exponent - 3, terms.exponent[4] + gain_exponent - 4};
    int const lowest = *std::min_element(exponent, exponent + gain_terms::count);
    for (int i = 0; i < gain_terms::count; ++i)
        aligned[i] = L_shr(L_deposit_h(terms.mantissa[i]), exponent[i] - lowest);
}

// Error of a pair of gains: pitch Q14, code in the scale of the prediction.
int32_t error(int32_t const aligned[gain_terms::count], int16_t pitch, int16_t code) {
    int32_t sum = Mpy_32_16(aligned[0], mult(pitch, pitch));
    sum = L_add(sum, Mpy_32_16(aligned[1], pitch));
    sum = L_add(sum, Mpy_32_16(aligned[2], mult(code, code)));
    sum = L_add(sum, Mpy_32_16(aligned[3], code));
    return L_add(sum, Mpy_32_16(aligned[4], mult(code, pitch)));
}

// Rows of the codebooks.
struct gain_rows {
    int row_1;
    int row_2;

    int16_t pitch() const { return static_cast<int16_t>(gbk1[row_1][0] + gbk2[row_2][0]); }  // Q14
    int32_t correction() const { return gbk1[row_1][1] + gbk2[row_2][1]; }                   // Q13
};

gain_rows search(int32_t const aligned[gain_terms::count], preselection first, scaled prediction, bool taming) {
    gain_rows best = {first.first_1, first.first_2};
    int32_t least = max_32;
    for (int i = first.first_1; i < first.first_1 + candidates_1; ++i) {
        for (int j = first.first_2; j < first.first_2 + candidates_2; ++j) {
            gain_rows const rows = {i, j};
            if (taming && rows.pitch() >= tamed_limit)
                continue;
            int16_t const code = mult(prediction.mantissa, extract_l(rows.correction() >> 1));
            int32_t const candidate = error(aligned, rows.pitch(), code);
            if (candidate < least) {
                least = candidate;
                best = rows;
            }
        }
    }
    return best;
}

quantized_gains apply(gain_rows rows, scaled prediction, int16_t past_qua_en[gain_memory]) {
    Gain_update(past_qua_en, rows.correction());
    return {static_cast<int16_t>(map1[rows.row_1] << 4 | map2[rows.row_2]), rows.pitch(),
            corrected_gain(prediction, rows.correction())};
}

}  // namespace

quantized_gains Qua_gain(int16_t const code[subframe_size], gain_terms const& terms, bool taming,
                         int16_t past_qua_en[gain_memory]) {
    scaled const prediction = Gain_predict(past_qua_en, code);
    gain_pair best = optimum(terms);
    if (taming)
        best.pitch = std::min(best.pitch, tamed_optimum);
    int32_t aligned[gain_terms::count];
    align(terms, prediction.exponent, aligned);
    return apply(search(aligned, preselect(best, prediction), prediction, taming), prediction, past_qua_en);
}

quantized_gains Dec_gain(int16_t index, int16_t const code[subframe_size], int16_t past_qua_en[gain_memory]) {
    scaled const prediction = Gain_predict(past_qua_en, code);
    return apply({imap1[(index >> 4) & 7], imap2[index & 15]}, prediction, past_qua_en);
}

void Gain_update_erasure(int16_t past_qua_en[gain_memory]) {
    int const mean = (past_qua_en[0] + past_qua_en[1] + past_qua_en[2] + past_qua_en[3]) >> 2;
    push(past_qua_en, static_cast<int16_t>(std::max<int>(mean - 4096, gain_error_at_rest)));
}

}  // namespace g729a
