#pragma once

#include <cstdint>

#include "codecs/g729a/basic_op.h"

/// Sums over short vectors of 16-bit words. The Recommendation's software clips after every product; where the
/// largest possible sum is known to fit, the clipping cannot happen and a plain sum is the same thing. The
/// sums of constant length are written so that compilers turn them into multiply-add instructions. Their loops are
/// unrolled eight times: a turn, pointers and branch, costs as much as two products.
namespace g729a {

/// Sum of x[i] y[i], i < n. The caller knows that no partial sum leaves 32 bits.
template <int n>
inline int32_t dot(int16_t const* x, int16_t const* y) {
    int32_t sum = 0;
#pragma GCC unroll 8
    for (int i = 0; i < n; ++i)
        sum += x[i] * y[i];
    return sum;
}

/// Correlations are made so many at a time: a vector of 16-bit words.
constexpr int correlation_block = 8;

/// Correlations of 20 words x with y at n places, n a multiple of correlation_block: sum[i] = x[0] y[i] + ... + x[19]
/// y[i + 19], i < n, or that added to sum[i]. The caller knows that nothing leaves 32 bits.
void correlate_20(int16_t const x[20], int16_t const* y, int32_t* sum, int n);
void add_correlations_20(int16_t const x[20], int16_t const* y, int32_t* sum, int n);

/// Sum of x[i]^2, i < n, exact.
template <int n>
[[gnu::noinline]] inline int64_t energy(int16_t const* x) {
    int64_t sum = 0;
#pragma GCC unroll 8
    for (int i = 0; i < n; ++i)
        sum += x[i] * x[i];
    return sum;
}

/// Whether L_mac over two vectors of these energies, from 0 or 1 on, can never clip: by Cauchy-Schwarz no partial sum
/// of their products is larger than the root of the energies' product, which has to be below 2^30.
constexpr bool products_fit(int64_t energy_x, int64_t energy_y) {
    return ((energy_x >> 10) + 1) * ((energy_y >> 10) + 1) < int64_t{1} << 40;
}

/// Whether x[0..n-1] are all within -limit..limit.
template <int n>
[[gnu::noinline]] inline bool within(int16_t const* x, int32_t limit) {
    bool beyond = false;
#pragma GCC unroll 8
    for (int i = 0; i < n; ++i)
        beyond |= static_cast<uint32_t>(x[i] + limit) > 2 * static_cast<uint32_t>(limit);
    return !beyond;
}

/// Sum of the magnitudes of x[0..n-1].
template <int n>
[[gnu::noinline]] inline int32_t sum_of_magnitudes(int16_t const* x) {
    int32_t sum = 0;
#pragma GCC unroll 8
    for (int i = 0; i < n; ++i) {
        int32_t const sign = x[i] >> 15;
        sum += (x[i] ^ sign) - sign;
    }
    return sum;
}

/// Largest magnitude (at most 32768) of a signal for which L_mac over coefficients of that sum of magnitudes can never
/// clip, not even when round() follows.
constexpr int32_t fitting_peak(int32_t magnitudes) {
    int32_t const highest = (1 << 30) - 0x4000 - 1;
    return magnitudes <= highest >> 15 ? 32768 : highest / magnitudes;
}

/// start, then L_mac of x[i], y[i], i < n: clips after every product.
inline int32_t L_mac_sum(int32_t start, int16_t const* x, int16_t const* y, int n) {
    for (int i = 0; i < n; ++i)
        start = L_mac(start, x[i], y[i]);
    return start;
}

}  // namespace g729a
