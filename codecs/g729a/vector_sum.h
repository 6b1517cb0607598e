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

/// sum[i] = x[0] y[i] + ... + x[taps - 1] y[i + taps - 1], i < n, or that added to sum. The caller knows that nothing
/// leaves 32 bits. On machines with many registers the x stay in them (not so if this were inlined), which leaves a
/// load and a multiply-add to a product; elsewhere the loop over i becomes vector instructions.
template <int taps, int n, bool added>
[[gnu::noinline]] inline void correlate_run(int16_t const* x, int16_t const* y, int32_t* sum) {
    for (int i = 0; i < n; ++i) {
        int32_t one = added ? sum[i] : 0;
#pragma GCC unroll 20
        for (int k = 0; k < taps; ++k)
            one += x[k] * y[i + k];
        sum[i] = one;
    }
}

/// Sum of x[i]^2, i < n, exact.
template <int n>
inline int64_t energy(int16_t const* x) {
    int64_t sum = 0;
#pragma GCC unroll 8
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

/// Whether x[0..n-1] are all within -limit..limit - 1; limit is a power of two.
template <int n>
inline bool within(int16_t const* x, uint32_t limit) {
    uint32_t bits = 0;
#pragma GCC unroll 8
    for (int i = 0; i < n; ++i)
        bits |= static_cast<uint32_t>(x[i]) + limit;
    return bits < 2 * limit;
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
