#include "codecs/g729a/lp_analysis.h"

#include <cstring>

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/lsp_tables.h"
#include "codecs/g729a/oper_32b.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int window_size = 240;
constexpr int32_t max_reflection = 32750;  // Q15, 0.99945: beyond it the filter counts as unstable

// 1 - k^2, with k in Q31.
int32_t one_minus_square(int32_t k) {
    return L_sub(max_32, L_abs(Mpy_32(k, k)));
}

// -numerator / denominator in Q31.
int32_t negative_ratio(int32_t numerator, int32_t denominator) {
    int32_t const ratio = Div_32(L_abs(numerator), denominator);
    return numerator > 0 ? L_negate(ratio) : ratio;
}

}  // namespace

void autocorrelation(int16_t const x[window_size], int32_t r[11]) {
    int16_t y[window_size + 16] = {};  // zeros behind, so that all lags sum over the whole window
    for (int i = 0; i < window_size; ++i)
        y[i] = mult_r(x[i], hamwindow[i]);
    int64_t r0 = 2 * energy(y, window_size) + 1;
    while (r0 > max_32) {
        for (int16_t& sample : y)
            sample = static_cast<int16_t>(sample >> 2);
        r0 = 2 * energy(y, window_size) + 1;
    }
    int const shift = norm_l(static_cast<int32_t>(r0));
    r[0] = static_cast<int32_t>(r0) << shift;
    // As the energy fits, no partial sum of another lag can leave 32 bits (Cauchy-Schwarz).
    for (int lag = 1; lag <= lp_order; ++lag) {
        int32_t const sum = 2 * dot<window_size>(y, y + lag);
        r[lag] = Mpy_32(sum << shift, L_Comp(lag_h[lag - 1], lag_l[lag - 1]));
    }
}

// The recursion's filter is Q27, reflection coefficients are Q31.
void Levinson(int32_t const r[11], int16_t a[11], int16_t old_a[11]) {
    int32_t filter[lp_order + 1];
    int32_t k = negative_ratio(L_Extract(r[1]), r[0]);
    filter[1] = L_Extract(k >> 4);
    int32_t alpha = Mpy_32(r[0], one_minus_square(k));  // normalised prediction error
    int alpha_exponent = norm_l(alpha);
    alpha <<= alpha_exponent;

    for (int i = 2; i <= lp_order; ++i) {
        int32_t sum = 0;
        for (int j = 1; j < i; ++j)
            sum = L_add(sum, Mpy_32(r[j], filter[i - j]));
        sum = L_add(L_shl(sum, 4), L_Extract(r[i]));
        k = L_shl(negative_ratio(sum, alpha), alpha_exponent);
        if (abs_s(extract_h(k)) > max_reflection) {
            std::memcpy(a, old_a, (lp_order + 1) * sizeof *a);
            return;
        }
        int32_t next[lp_order + 1];
        for (int j = 1; j < i; ++j)
            next[j] = L_Extract(L_add(Mpy_32(k, filter[i - j]), filter[j]));
        next[i] = L_Extract(k >> 4);
        std::memcpy(filter + 1, next + 1, static_cast<unsigned>(i) * sizeof *filter);

        alpha = Mpy_32(alpha, one_minus_square(k));
        int const shift = norm_l(alpha);
        alpha <<= shift;
        alpha_exponent += shift;
    }
    a[0] = 4096;
    for (int i = 1; i <= lp_order; ++i)
        a[i] = round(L_shl(filter[i], 1));
    std::memcpy(old_a, a, (lp_order + 1) * sizeof *a);
}

}  // namespace g729a
