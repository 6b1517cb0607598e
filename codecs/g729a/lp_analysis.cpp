#include "codecs/g729a/lp_analysis.h"

#include <cstring>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// Window: 200 samples of rising half Hamming, 40 of a falling quarter cosine, Q15 (3.2.1).
constexpr int16_t hamwindow[window_size] = {
    2621,  2623,  2629,  2638,  2651,  2668,  2689,  2713,  2741,  2772,  2808,  2847,  2890,  2936,  2986,  3040,
    3097,  3158,  3223,  3291,  3363,  3438,  3517,  3599,  3685,  3774,  3867,  3963,  4063,  4166,  4272,  4382,
    4495,  4611,  4731,  4853,  4979,  5108,  5240,  5376,  5514,  5655,  5800,  5947,  6097,  6250,  6406,  6565,
    6726,  6890,  7057,  7227,  7399,  7573,  7750,  7930,  8112,  8296,  8483,  8672,  8863,  9057,  9252,  9450,
    9650,  9852,  10055, 10261, 10468, 10677, 10888, 11101, 11315, 11531, 11748, 11967, 12187, 12409, 12632, 12856,
    13082, 13308, 13536, 13764, 13994, 14225, 14456, 14688, 14921, 15155, 15389, 15624, 15859, 16095, 16331, 16568,
    16805, 17042, 17279, 17516, 17754, 17991, 18228, 18465, 18702, 18939, 19175, 19411, 19647, 19882, 20117, 20350,
    20584, 20816, 21048, 21279, 21509, 21738, 21967, 22194, 22420, 22644, 22868, 23090, 23311, 23531, 23749, 23965,
    24181, 24394, 24606, 24816, 25024, 25231, 25435, 25638, 25839, 26037, 26234, 26428, 26621, 26811, 26999, 27184,
    27368, 27548, 27727, 27903, 28076, 28247, 28415, 28581, 28743, 28903, 29061, 29215, 29367, 29515, 29661, 29804,
    29944, 30081, 30214, 30345, 30472, 30597, 30718, 30836, 30950, 31062, 31170, 31274, 31376, 31474, 31568, 31659,
    31747, 31831, 31911, 31988, 32062, 32132, 32198, 32261, 32320, 32376, 32428, 32476, 32521, 32561, 32599, 32632,
    32662, 32688, 32711, 32729, 32744, 32755, 32763, 32767, 32767, 32741, 32665, 32537, 32359, 32129, 31850, 31521,
    31143, 30716, 30242, 29720, 29151, 28538, 27879, 27177, 26433, 25647, 24821, 23957, 23055, 22117, 21145, 20139,
    19102, 18036, 16941, 15820, 14674, 13505, 12315, 11106, 9879,  8637,  7381,  6114,  4838,  3554,  2264,  971};

// Lag window for lags 1..10, lag_h / 2^15 + lag_l / 2^30: 60 Hz bandwidth expansion with the white-noise factor 1.0001
// folded in (3.2.1).
constexpr int16_t lag_h[lp_order] = {32728, 32619, 32438, 32187, 31867, 31480, 31029, 30517, 29946, 29321};
constexpr int16_t lag_l[lp_order] = {11904, 17280, 30720, 25856, 24192, 28992, 24384, 7360, 19520, 14784};

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

void autocorrelation(int16_t const x[window_size], int32_t r[lp_size]) {
    int16_t y[window_size + 16] = {};      // zeros behind, so that all lags sum over the whole window
#pragma GCC unroll 8                       // spares two instructions in seven
    for (int i = 0; i < window_size; ++i)  // mult_r() without what clips -32768 * -32768: the window is positive
        y[i] = static_cast<int16_t>((x[i] * hamwindow[i] + 0x4000) >> 15);
    int64_t r0 = 2 * energy<window_size>(y) + 1;
    while (r0 > max_32) {
        for (int16_t& sample : y)
            sample = static_cast<int16_t>(sample >> 2);
        r0 = 2 * energy<window_size>(y) + 1;
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
void Levinson(int32_t const r[lp_size], int16_t a[lp_size], int16_t old_a[lp_size]) {
    int32_t filter[lp_size];
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
            std::memcpy(a, old_a, lp_size * sizeof *a);
            return;
        }
        int32_t next[lp_size];
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
    std::memcpy(old_a, a, lp_size * sizeof *a);
}

}  // namespace g729a
