#include "codecs/g729a/az_lsp.h"

#include <cstring>

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/lsp_tables.h"
#include "codecs/g729a/oper_32b.h"

namespace g729a {

namespace {

constexpr int half_order = lp_order / 2;
constexpr int grid_points = 50;

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
bool expand(int16_t const a[lp_order + 1], int shift, polynomials& p) {
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

}  // namespace

void Az_lsp(int16_t const a[lp_order + 1], int16_t lsp[lp_order], int16_t const old_lsp[lp_order]) {
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

}  // namespace g729a
