#pragma once

#include <cstdint>

#include "codecs/g729a/basic_op.h"

/// Sums over short vectors of 16-bit words. The Recommendation's software clips after every product; where the
/// largest possible sum is known to fit, the clipping cannot happen and a plain sum is the same thing. The
/// sums of constant length are written so that compilers turn them into multiply-add instructions.
namespace g729a {

/// Sum of x[i] y[i], i < n. The caller knows that no partial sum leaves 32 bits.
template <int n>
inline int32_t dot(int16_t const* x, int16_t const* y) {
    int32_t sum = 0;
#pragma GCC unroll 8  // a turn costs as much as two products
    for (int i = 0; i < n; ++i)
        sum += x[i] * y[i];
    return sum;
}

/// Sum of x[i]^2, i < n, exact.
inline int64_t energy(int16_t const* x, int n) {
    int64_t sum = 0;
    for (int i = 0; i < n; ++i)
        sum += x[i] * x[i];
    return sum;
}

/// Largest magnitude of x[0..n-1], 0..32768.
template <int n>
inline int32_t peak(int16_t const* x) {
    int16_t high = 0;
    int16_t low = 0;
    for (int i = 0; i < n; ++i) {
        high = x[i] > high ? x[i] : high;
        low = x[i] < low ? x[i] : low;
    }
    return high > -low ? high : -low;
}

/// Sum of the magnitudes of x[0..n-1].
inline int32_t sum_of_magnitudes(int16_t const* x, int n) {
    int32_t sum = 0;
    for (int i = 0; i < n; ++i)
        sum += x[i] < 0 ? -x[i] : x[i];
    return sum;
}

/// Whether L_mac over coefficients of that sum of magnitudes and a signal of that peak can never clip, not
/// even when round() follows.
constexpr bool sums_fit(int32_t magnitudes, int32_t signal_peak) {
    return int64_t{magnitudes} * signal_peak < (1 << 30) - 0x4000;
}

/// start, then L_mac of x[i], y[i], i < n: clips after every product.
inline int32_t L_mac_sum(int32_t start, int16_t const* x, int16_t const* y, int n) {
    for (int i = 0; i < n; ++i)
        start = L_mac(start, x[i], y[i]);
    return start;
}

}  // namespace g729a
