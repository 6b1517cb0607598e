#include "codecs/g729a/lsp.h"

#include <algorithm>
#include <cstring>

#include "codecs/g729a/basic_op.h"

namespace g729a {

namespace {

constexpr int half_order = lp_order / 2;

// Grid of the root search: cos(pi i / 50), ends clipped to +-32760, Q15 (A.3.2.3).
constexpr int grid_points = 50;
constexpr int16_t grid[grid_points + 1] = {
    32760,  32703,  32509,  32187,  31738,  31164,  30466,  29649,  28714,  27666,  26509,  25248,  23886,
    22431,  20887,  19260,  17557,  15786,  13951,  12062,  10125,  8149,   6140,   4106,   2057,   0,
    -2057,  -4106,  -6140,  -8149,  -10125, -12062, -13951, -15786, -17557, -19260, -20887, -22431, -23886,
    -25248, -26509, -27666, -28714, -29649, -30466, -31164, -31738, -32187, -32509, -32703, -32760};

// cos(pi i / 64), Q15; the slope of the cosine in interval i, Q12, and of the arc cosine, Q11 (3.2.4).
constexpr int intervals = 64;
constexpr int16_t table2[intervals] = {
    32767,  32729,  32610,  32413,  32138,  31786,  31357,  30853,  30274,  29622,  28899,  28106,  27246,
    26320,  25330,  24279,  23170,  22006,  20788,  19520,  18205,  16846,  15447,  14010,  12540,  11039,
    9512,   7962,   6393,   4808,   3212,   1608,   0,      -1608,  -3212,  -4808,  -6393,  -7962,  -9512,
    -11039, -12540, -14010, -15447, -16846, -18205, -19520, -20788, -22006, -23170, -24279, -25330, -26320,
    -27246, -28106, -28899, -29622, -30274, -30853, -31357, -31786, -32138, -32413, -32610, -32729};

constexpr int16_t slope_cos[intervals] = {
    -632,   -1893,  -3150,  -4399,  -5638,  -6863,  -8072,  -9261,  -10428, -11570, -12684, -13767, -14817,
    -15832, -16808, -17744, -18637, -19486, -20287, -21039, -21741, -22390, -22986, -23526, -24009, -24435,
    -24801, -25108, -25354, -25540, -25664, -25726, -25726, -25664, -25540, -25354, -25108, -24801, -24435,
    -24009, -23526, -22986, -22390, -21741, -21039, -20287, -19486, -18637, -17744, -16808, -15832, -14817,
    -13767, -12684, -11570, -10428, -9261,  -8072,  -6863,  -5638,  -4399,  -3150,  -1893,  -632};

constexpr int16_t slope_acos[intervals] = {
    -26887, -8812, -5323, -3813, -2979, -2444, -2081, -1811, -1608, -1450, -1322, -1219, -1132, -1059, -998,  -946,
    -901,   -861,  -827,  -797,  -772,  -750,  -730,  -713,  -699,  -687,  -677,  -668,  -662,  -657,  -654,  -652,
    -652,   -654,  -657,  -662,  -668,  -677,  -687,  -699,  -713,  -730,  -750,  -772,  -797,  -827,  -861,  -901,
    -946,   -998,  -1059, -1132, -1219, -1322, -1450, -1608, -1811, -2081, -2444, -2979, -3813, -5323, -8812, -26887};

// Sum and difference polynomial without their fixed roots. Q11, or Q10 when a coefficient does not fit.
struct polynomials {
    int16_t f[2][half_order + 1];
    int shift;     // 0: Q11, 1: Q10
    bool fits[2];  // the evaluation of f[k] cannot clip before its last step
};

// Whether all of the recursion below stays within 32 bits: term k of it is at most the sum of (k - i + 1)
// |f[i]|, and no intermediate value is more than 11 |f[0]| + 8 |f[1]| + 5 |f[2]| + 3 |f[3]| + |f[4]| + |f[5]|
// / 2 in the format of f, which the recursion holds 8192 times larger.
bool evaluation_fits(int16_t const f[half_order + 1]) {
    auto const size = [&](int i) { return f[i] < 0 ? -f[i] : int32_t{f[i]}; };
    return 11 * size(0) + 8 * size(1) + 5 * size(2) + 3 * size(3) + size(4) + size(5) < (1 << 18) - 64;
}

// Fills p in Q(11 - shift). Returns whether a coefficient clipped.
bool expand(int16_t const a[lp_size], int shift, polynomials& p) {
    bool clipped = false;
    p.shift = shift;
    p.f[0][0] = p.f[1][0] = static_cast<int16_t>(2048 >> shift);
    for (int i = 0; i < half_order; ++i) {
        int32_t const sum = ((a[i + 1] + a[lp_order - i]) >> (1 + shift)) - p.f[0][i];
        int32_t const difference = ((a[i + 1] - a[lp_order - i]) >> (1 + shift)) + p.f[1][i];
        p.f[0][i + 1] = sat16(sum);
        p.f[1][i + 1] = sat16(difference);
        clipped = clipped || p.f[0][i + 1] != sum || p.f[1][i + 1] != difference;
    }
    p.fits[0] = evaluation_fits(p.f[0]);
    p.fits[1] = evaluation_fits(p.f[1]);
    return clipped;
}

// 2^times x b + f - previous of the recursion, b and previous in double precision.
int32_t next_term(int32_t b, int32_t x, int times, int32_t previous, int32_t f) {
    return (Mpy_32_16(b, x) << times) - L_Extract(previous) + f;
}

// The same with clipping after every step; the upper and the lower part of previous are subtracted one after
// the other.
int32_t next_term_clipping(int32_t b, int32_t x, int times, int32_t previous, int32_t f) {
    int32_t t = L_shl(Mpy_32_16(b, x), times);
    t = L_mac(t, extract_h(previous), -32768);
    t = L_msu(t, dpf_lo(previous), 1);
    return L_add(t, f);
}

// Value of the Chebyshev series f at x (Q15), Q14. The recursion runs in Q24, in Q23 for Q10 coefficients.
template <auto next>
int16_t chebyshev(int32_t x, int16_t const f[half_order + 1], int shift) {
    int32_t const b0 = f[0] * 8192;
    int32_t const b1 = ((x * 1024) >> shift) + f[1] * 8192;
    int32_t const b2 = next(b1, x, 1, b0, f[2] * 8192);
    int32_t const b3 = next(b2, x, 1, b1, f[3] * 8192);
    int32_t const b4 = next(b3, x, 1, b2, f[4] * 8192);
    return extract_h(L_shl(next(b4, x, 0, b3, f[5] * 4096), 6 + shift));
}

struct point {
    int16_t x, y;
};

// Zero of the straight line through two points.
int16_t interpolate_root(point low, point high) {
    int16_t const x = sub(high.x, low.x);
    int16_t const y = sub(high.y, low.y);
    if (y == 0)
        return low.x;
    int const shift = norm_s(abs_s(y));
    int16_t const inverse = div_s(16383, shl(abs_s(y), shift));
    int16_t slope = extract_l(L_shr(L_mult(x, inverse), 20 - shift));  // Q11
    if (y < 0)
        slope = negate(slope);
    return sub(low.x, extract_l(L_mult(low.y, slope) >> 11));
}

// f[0..5] (Q24) = product of 1 - 2 q z^-1 + z^-2 over the five LSP lsp[0], lsp[2], ... lsp[8].
void lsp_polynomial(int16_t const* lsp, int32_t f[half_order + 1]) {
    f[0] = 1 << 24;
    f[1] = L_msu(0, lsp[0], 512);
    for (int i = 2; i <= half_order; ++i) {
        int16_t const q = lsp[2 * (i - 1)];
        f[i] = f[i - 2];
        for (int k = i; k >= 2; --k)
            f[k] = L_sub(L_add(f[k], f[k - 2]), L_shl(Mpy_32_16(f[k - 1], q), 1));
        f[1] = L_msu(f[1], q, 512);
    }
}

// a[0..10] (Q12) = LP filter of the LSP.
void Lsp_Az(int16_t const lsp[lp_order], int16_t a[lp_size]) {
    int32_t f1[half_order + 1];
    int32_t f2[half_order + 1];
    lsp_polynomial(lsp, f1);
    lsp_polynomial(lsp + 1, f2);
    for (int i = half_order; i > 0; --i) {
        f1[i] = L_add(f1[i], f1[i - 1]);
        f2[i] = L_sub(f2[i], f2[i - 1]);
    }
    a[0] = 4096;
    for (int i = 1; i <= half_order; ++i) {
        a[i] = extract_l(L_shr_r(L_add(f1[i], f2[i]), 13));
        a[lp_order + 1 - i] = extract_l(L_shr_r(L_sub(f1[i], f2[i]), 13));
    }
}

}  // namespace

void Az_lsp(int16_t const a[lp_size], int16_t lsp[lp_order], int16_t const old_lsp[lp_order]) {
    polynomials p;
    if (expand(a, 0, p))
        expand(a, 1, p);
    auto const at = [&](int k, int16_t x) {
        return point{x, p.fits[k] ? chebyshev<next_term>(x, p.f[k], p.shift)
                                  : chebyshev<next_term_clipping>(x, p.f[k], p.shift)};
    };

    int found = 0;
    point low = at(0, grid[0]);
    for (int j = 1; j <= grid_points && found < lp_order; ++j) {
        point high = low;
        low = at(found & 1, grid[j]);
        if (low.y * high.y > 0)
            continue;
        for (int bisection = 0; bisection < 2; ++bisection) {
            point const middle = at(found & 1, add(low.x >> 1, high.x >> 1));
            (low.y * middle.y <= 0 ? high : low) = middle;
        }
        lsp[found++] = interpolate_root(low, high);
        low = at(found & 1, lsp[found - 1]);
    }
    if (found < lp_order)
        std::memcpy(lsp, old_lsp, lp_order * sizeof *lsp);
}

void Lsp_lsf(int16_t const lsp[lp_order], int16_t lsf[lp_order]) {
    int interval = intervals - 1;
    for (int i = lp_order - 1; i >= 0; --i) {
        while (interval > 0 && table2[interval] < lsp[i])
            --interval;
        int16_t const offset = sub(lsp[i], table2[interval]);
        int32_t const fine = L_mult(slope_acos[interval], offset) >> 12;
        lsf[i] = mult(add(interval << 9, extract_l(fine)), 25736);  // Q15 of half circles to Q13 radians: pi
    }
}

void Lsf_lsp(int16_t const lsf[lp_order], int16_t lsp[lp_order]) {
    for (int i = 0; i < lp_order; ++i) {
        int16_t const frequency = mult(lsf[i], 20861);  // 1 / pi in Q16: Q15 of half circles
        int const interval = std::min(frequency >> 8, intervals - 1);
        int32_t const fine = L_mult(slope_cos[interval], frequency & 255) >> 13;
        lsp[i] = add(table2[interval], extract_l(fine));
    }
}

void Int_qlpc(int16_t const lsp_old[lp_order], int16_t const lsp_new[lp_order], int16_t a_t[subframes][lp_size]) {
    int16_t mean[lp_order];
    for (int i = 0; i < lp_order; ++i)
        mean[i] = static_cast<int16_t>((lsp_new[i] >> 1) + (lsp_old[i] >> 1));
    Lsp_Az(mean, a_t[0]);
    Lsp_Az(lsp_new, a_t[1]);
}

}  // namespace g729a
