#pragma once

#include <algorithm>
#include <cstdint>

#include "codecs/sign.h"

/// Limits to 16 bits. Every addition of ITU-T G.722 does; here, every one that makes a difference. Hardly one does: to
/// ask whether takes a third of what limiting takes.
inline int g722_saturate(int value) {
    if (value != static_cast<std::int16_t>(value)) [[unlikely]]
        return value < 0 ? -32768 : 32767;
    return value;
}

/// Limits to +-limit, likewise.
inline int g722_limit(int value, int limit) {
    if (static_cast<unsigned>(value + limit) > static_cast<unsigned>(2 * limit)) [[unlikely]]
        return value < 0 ? -limit : limit;
    return value;
}

/// value * (1 - 2^-shift), rounded down, plus added / 2^shift, which has no remainder. Leaking and adding take an
/// operation less together than apart.
template <int shift>
int g722_leak(int value, int added) {
    return value + ((added - value) >> shift);
}

/// The adaptive predictor of one band of ITU-T G.722, two poles and six zeros: BLOCK 4L and BLOCK 4H, which do
/// the same. It knows nothing of codes and scale factors. Variables bear the Recommendation's names.
class g722_predictor {
public:
    /// One step with the quantized difference signal (at most +-10228, what the largest scale factor allows). gain:
    /// 2^15 with its sign, 0 for 0, is 128 for the coefficients. loud: the magnitudes of the last six differences may
    /// be more than 16383 together. Returns the estimate of the next sample.
    int process(int d, int gain, bool loud);
    /// Estimate of the next sample, 17 bits. Limiting it to 16 (PREDIC) would change nothing: whatever takes it
    /// in has reached a lower limit of its own by then.
    int estimate() const { return s; }

private:
    void adapt_poles(int sg0);
    int filter_zeros(int d, int gain);
    int sum_zeros_limiting() const;

    int s = 0;              ///< estimate
    int sz = 0;             ///< what the zeros contribute to it
    int a1 = 0, a2 = 0;     ///< pole coefficients, Q14
    int sg1 = 0, sg2 = 0;   ///< sign (0 or -1) of the last two partially reconstructed signals
    int r1_doubled = 0;     ///< twice the last reconstructed signal, 16 bits
    int b[6] = {};          ///< zero coefficients, Q14, newest first
    int d_doubled[6] = {};  ///< twice the difference signal
};

/// RECONS, PARREC, UPPOL2, UPPOL1, UPZERO, DELAYA, FILTEP, FILTEZ, PREDIC.
inline int g722_predictor::process(int d, int gain, bool loud) {
    int const r_doubled = g722_saturate(2 * (s + d));
    int const sg0 = (sz + d) >> 31;
    adapt_poles(sg0);
    sg2 = sg1;
    sg1 = sg0;
    sz = filter_zeros(d, gain);
    if (loud) [[unlikely]]
        sz = sum_zeros_limiting();
    int const sp = g722_saturate((a1 * r_doubled >> 15) + (a2 * r1_doubled >> 15));
    r1_doubled = r_doubled;
    s = sp + sz;
    return s;
}

/// UPPOL2, UPPOL1. The slope is four times a1, limited to 16 bits, divided by 128.
inline void g722_predictor::adapt_poles(int sg0) {
    int const other = sg0 ^ sg1;
    int const wd2 = std::clamp((other - (a1 ^ other)) >> 5, -256, 255);
    a2 = g722_limit(wd2 + g722_leak<7>(a2, with_sign(128 << 7, sg0 ^ sg2)), 12288);
    int const limit = 15360 - a2;
    a1 = g722_limit(g722_leak<8>(a1, with_sign(192 << 8, other)), limit);
}

/// UPZERO, DELAYA, FILTEZ. A coefficient is 1 at most, or 2 in Q14: with differences that aren't loud no sum is
/// limited.
inline int g722_predictor::filter_zeros(int d, int gain) {
    int sum = 0;
    // Unrolled: so the twelve values can stay in registers from one sample to the next.
#pragma GCC unroll 6
    for (int i = 5; i >= 0; i--) {
        b[i] = g722_leak<8>(b[i], with_sign(gain, d_doubled[i] >> 31));
        d_doubled[i] = i > 0 ? d_doubled[i - 1] : 2 * d;
        sum += b[i] * d_doubled[i] >> 15;
    }
    return sum;
}

/// FILTEZ. The terms are added from the oldest on, and every sum is limited.
inline int g722_predictor::sum_zeros_limiting() const {
    int sum = 0;
#pragma GCC unroll 6
    for (int i = 5; i >= 0; i--)
        sum = g722_saturate(sum + (b[i] * d_doubled[i] >> 15));
    return sum;
}
