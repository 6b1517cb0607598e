#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "codecs/g729a/adaptive_codebook.h"
#include "codecs/g729a/closed_loop_pitch.h"
#include "codecs/g729a/lp_filter.h"
#include "codecs/g729a/oper_32b.h"
#include "codecs/g729a/tables.h"
#include "tests/codecs/g729a/signals.h"

// The arithmetic below the coder: operators against exact 64-bit arithmetic, and the filters' short cuts
// against sums that clip after every product.

namespace {

using namespace g729a;
using g729a_test::random_source;

int64_t clip(int64_t value, int bits) {
    const int64_t highest = (int64_t{1} << (bits - 1)) - 1;
    return std::clamp(value, -highest - 1, highest);
}

// floor(x 2^n), far shifts included.
int64_t shifted(int64_t x, int n) {
    return n >= 0 ? (x == 0   ? 0
                     : n > 31 ? (x < 0 ? -(int64_t{1} << 62) : int64_t{1} << 62)
                              : x * (int64_t{1} << n))
                  : x >> std::min(-n, 63);
}

std::vector<int32_t> edges(int bits) {
    std::vector<int32_t> values;
    for (int shift = 0; shift < bits; ++shift) {
        const int64_t power = int64_t{1} << shift;
        for (int64_t value : {power - 1, power, power + 1, -power - 1, -power, 1 - power})
            values.push_back(static_cast<int32_t>(clip(value, bits)));
    }
    return values;
}

TEST(G729aOperators, SixteenBit) {
    for (int32_t a : edges(16)) {
        EXPECT_EQ(negate(a), clip(-a, 16));
        EXPECT_EQ(abs_s(a), clip(std::abs(a), 16));
        const int norm = norm_s(a);
        EXPECT_TRUE(a == 0 || shifted(a, norm) >= 0x4000 || shifted(a, norm) < -0x4000) << a;
        EXPECT_EQ(clip(shifted(a, norm), 16), shifted(a, norm)) << a;
        for (int n = -40; n <= 40; ++n) {
            EXPECT_EQ(shl(a, n), clip(shifted(a, n), 16)) << a << ' ' << n;
            EXPECT_EQ(shr(a, n), clip(shifted(a, -n), 16)) << a << ' ' << n;
        }
        for (int32_t b : edges(16)) {
            EXPECT_EQ(add(a, b), clip(a + b, 16));
            EXPECT_EQ(sub(a, b), clip(a - b, 16));
            EXPECT_EQ(mult(a, b), clip((a * b) >> 15, 16)) << a << ' ' << b;
            EXPECT_EQ(mult_r(a, b), clip((a * b + 0x4000) >> 15, 16)) << a << ' ' << b;
            EXPECT_EQ(L_mult(a, b), clip(int64_t{2} * a * b, 32)) << a << ' ' << b;
            const bool legal = a >= 0 && b > 0 && a <= b;
            EXPECT_EQ(div_s(a, b), legal ? std::min((int64_t{a} << 15) / b, int64_t{32767}) : 0)
                << a << ' ' << b;
        }
    }
}

TEST(G729aOperators, ThirtyTwoBit) {
    for (int32_t x : edges(32)) {
        EXPECT_EQ(L_negate(x), clip(-int64_t{x}, 32));
        EXPECT_EQ(L_abs(x), clip(std::abs(int64_t{x}), 32));
        EXPECT_EQ(round(x), clip((int64_t{x} + 0x8000) >> 16, 16)) << x;
        const int64_t normalised = shifted(x, norm_l(x));
        EXPECT_EQ(normalised, clip(normalised, 32)) << x;
        EXPECT_TRUE(x == 0 || normalised >= 0x40000000 || normalised < -0x40000000) << x;
        for (int n = -40; n <= 40; ++n) {
            EXPECT_EQ(L_shl(x, n), clip(shifted(x, n), 32)) << x << ' ' << n;
            EXPECT_EQ(L_shr(x, n), clip(shifted(x, -n), 32)) << x << ' ' << n;
            const int64_t rounded = n > 31 ? 0 : shifted(x, -n) + (n > 0 ? (x >> (n - 1)) & 1 : 0);
            EXPECT_EQ(L_shr_r(x, n), clip(rounded, 32)) << x << ' ' << n;
        }
        for (int32_t y : edges(32)) {
            EXPECT_EQ(L_add(x, y), clip(int64_t{x} + y, 32));
            EXPECT_EQ(L_sub(x, y), clip(int64_t{x} - y, 32));
        }
        for (int32_t n : edges(16)) {
            if (n == -32768)
                continue;
            const int32_t pair = L_mac(L_mult(extract_h(x), n), mult(dpf_lo(x), n), 1);
            EXPECT_EQ(Mpy_32_16(x, n), pair) << x << ' ' << n;
        }
        EXPECT_EQ(L_Comp(extract_h(x), dpf_lo(x)), L_Extract(x)) << x;
    }
}

// A filter of magnitude up to reach and a signal that is now small, now full scale.
struct extreme_case {
    int16_t a[lp_order + 1] = {4096};
    int16_t history[lp_order + 40];

    explicit extreme_case(random_source& random) {
        const int32_t reach = 1 << random.between(8, 15);
        const int32_t gaps = random.between(0, 4);  // other coefficients are 0
        for (int i = 1; i <= lp_order; ++i)
            if (random.between(0, gaps) == 0)
                a[i] = static_cast<int16_t>(random.between(-reach, reach - 1));
        const int32_t amplitude = 1 << random.between(4, 15);
        const bool square = random.between(0, 1) == 0;
        for (int16_t& sample : history)
            sample = static_cast<int16_t>(!square ? random.between(-amplitude, amplitude - 1)
                                          : random.between(0, 1) == 0 ? amplitude - 1
                                                                      : -amplitude);
    }
};

TEST(G729aFilters, SynthesisClipsAfterEveryProduct) {
    random_source random(11);
    int overflows = 0;
    for (int round_trip = 0; round_trip < 20000; ++round_trip) {
        const extreme_case c(random);
        int16_t y[40];
        const bool clipped = Syn_filt(c.a, c.history + lp_order, y, 40, c.history);
        int16_t expected[lp_order + 40];
        std::copy_n(c.history, lp_order, expected);
        bool expected_clipped = false;
        const auto check = [&](int64_t exact, int64_t value) { expected_clipped |= exact != value; };
        for (int i = lp_order; i < lp_order + 40; ++i) {
            int32_t sum = L_mult(c.history[i], c.a[0]);
            for (int j = 1; j <= lp_order; ++j) {
                check(int64_t{2} * c.a[j] * expected[i - j], L_mult(c.a[j], expected[i - j]));
                check(int64_t{sum} - L_mult(c.a[j], expected[i - j]), L_msu(sum, c.a[j], expected[i - j]));
                sum = L_msu(sum, c.a[j], expected[i - j]);
            }
            check(int64_t{sum} * 8, L_shl(sum, 3));
            check(int64_t{L_shl(sum, 3)} + 0x8000, L_add(L_shl(sum, 3), 0x8000));
            expected[i] = round(L_shl(sum, 3));
        }
        ASSERT_TRUE(std::equal(y, y + 40, expected + lp_order)) << round_trip;
        ASSERT_EQ(clipped, expected_clipped) << round_trip;
        overflows += clipped;
    }
    EXPECT_GT(overflows, 5000);
    EXPECT_LT(overflows, 19000);
}

// Where exactly an output counts as clipped: 32767.5 does, as does anything below -32768. The sum is x of 1
// and y[-1] of a[1] = -1 / 4096, a[2] does nothing but, with an old loud output, call for the clipping sum.
TEST(G729aFilters, EdgesOfClipping) {
    struct edge {
        int16_t x, last;
        bool clipped;
    };
    constexpr edge edges[] = {
        {32767, 2047, false}, {32767, 2048, true}, {-32768, 0, false}, {-32768, -1, true}};
    for (const edge& e : edges) {
        for (bool loud : {false, true}) {
            const int16_t a[lp_order + 1] = {4096, -1, static_cast<int16_t>(loud ? 32767 : 0)};
            int16_t mem[lp_order] = {static_cast<int16_t>(loud ? 32767 : 0)};
            mem[lp_order - 1] = e.last;
            int16_t y = 0;
            EXPECT_EQ(Syn_filt(a, &e.x, &y, 1, mem), e.clipped) << e.x << ' ' << e.last << ' ' << loud;
            EXPECT_EQ(y, e.x);
        }
    }
}

TEST(G729aFilters, ResidualClipsAfterEveryProduct) {
    random_source random(12);
    for (int round_trip = 0; round_trip < 20000; ++round_trip) {
        const extreme_case c(random);
        int16_t y[40];
        Residu(c.a, c.history + lp_order, y);
        for (int i = 0; i < 40; ++i) {
            int32_t sum = 0;
            for (int j = 0; j <= lp_order; ++j)
                sum = L_mac(sum, c.a[j], c.history[lp_order + i - j]);
            ASSERT_EQ(y[i], round(L_shl(sum, 3))) << round_trip << ' ' << i;
        }
    }
}

TEST(G729aFilters, BackwardFilterClipsAfterEveryProduct) {
    random_source random(13);
    for (int round_trip = 0; round_trip < 20000; ++round_trip) {
        const extreme_case target(random);
        const extreme_case response(random);
        const int16_t* xn = target.history;
        const int16_t* h = response.history;
        int16_t dn[40];
        backward_filter(xn, h, dn);
        int32_t y[40] = {};
        int32_t highest = 0;
        for (int i = 0; i < 40; ++i) {
            for (int j = i; j < 40; ++j)
                y[i] = L_mac(y[i], xn[j], h[j - i]);
            highest = std::max(highest, L_abs(y[i]));
        }
        const int shift = 18 - std::min(norm_l(highest), 16);
        for (int i = 0; i < 40; ++i)
            ASSERT_EQ(dn[i], extract_l(L_shr(y[i], shift))) << round_trip << ' ' << i;
    }
}

TEST(G729aFilters, AdaptiveVectorClipsAfterEveryProduct) {
    random_source random(14);
    for (int round_trip = 0; round_trip < 20000; ++round_trip) {
        int16_t past[exc_past + 40];
        const int32_t amplitude = 1 << random.between(4, 15);
        for (int16_t& sample : past)
            sample = static_cast<int16_t>(random.between(0, 1) == 0 ? amplitude - 1 : -amplitude);
        int16_t expected[exc_past + 40];
        std::copy_n(past, exc_past + 40, expected);
        const int t0 = random.between(19, 143);
        const int frac = random.between(-1, 1);
        Pred_lt_3(past + exc_past, t0, frac);
        const int phase = (3 - frac) % 3;
        const int16_t* x = expected + exc_past - t0 - (frac == 1);
        for (int n = 0; n < 40; ++n) {
            int32_t sum = 0;
            for (int i = 0; i < 10; ++i) {
                sum = L_mac(sum, x[n - i], inter_3l[phase + 3 * i]);
                sum = L_mac(sum, x[n + 1 + i], inter_3l[3 - phase + 3 * i]);
            }
            expected[exc_past + n] = round(sum);
        }
        ASSERT_TRUE(std::equal(past, past + exc_past + 40, expected)) << t0 << ' ' << frac;
    }
}

}  // namespace
