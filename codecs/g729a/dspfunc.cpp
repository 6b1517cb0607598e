#include "codecs/g729a/dspfunc.h"

#include "codecs/g729a/basic_op.h"

namespace g729a {

namespace {

// 2^(i / 32), last one clipped, Q14 (function Pow2)
constexpr int16_t tabpow[33] = {16384, 16743, 17109, 17484, 17867, 18258, 18658, 19066, 19484, 19911, 20347,
                                20792, 21247, 21713, 22188, 22674, 23170, 23678, 24196, 24726, 25268, 25821,
                                26386, 26964, 27554, 28158, 28774, 29405, 30048, 30706, 31379, 32066, 32767};

// log2(1 + i / 32), last one clipped, Q15 (function Log2)
constexpr int16_t tablog[33] = {0,     1455,  2866,  4236,  5568,  6863,  8124,  9352,  10549, 11716, 12855,
                                13967, 15054, 16117, 17156, 18172, 19167, 20142, 21097, 22033, 22951, 23852,
                                24735, 25603, 26455, 27291, 28113, 28922, 29716, 30497, 31266, 32023, 32767};

// 1 / sqrt(x) / 2 on x = 1/4..1 in steps of 1/64, Q15 (function Inv_sqrt)
constexpr int16_t tabsqr[49] = {32767, 31790, 30894, 30070, 29309, 28602, 27945, 27330, 26755, 26214,
                                25705, 25225, 24770, 24339, 23930, 23541, 23170, 22817, 22479, 22155,
                                21845, 21548, 21263, 20988, 20724, 20470, 20225, 19988, 19760, 19539,
                                19326, 19119, 18919, 18725, 18536, 18354, 18176, 18004, 17837, 17674,
                                17515, 17361, 17211, 17064, 16921, 16782, 16646, 16514, 16384};

// Value in Q31 between table[i] and table[i + 1] at fraction Q15. Neighbours of the tables differ by less
// than 2^11, so nothing clips.
int32_t interpolate(int16_t const* table, int32_t i, int32_t fraction) {
    return table[i] * 65536 - (table[i] - table[i + 1]) * fraction * 2;
}

}  // namespace

int32_t Pow2(int exponent, int32_t fraction) {
    return L_shr_r(interpolate(tabpow, fraction >> 10, (fraction << 5) & 0x7fff), 30 - exponent);
}

int32_t Log2(int32_t x) {
    if (x <= 0)
        return 0;
    int const shift = norm_l(x);
    int32_t const normalised = x << shift;  // bits 30..25 are the index + 32, the next 15 the fraction
    int32_t const log = interpolate(tablog, (normalised >> 25) - 32, (normalised >> 10) & 0x7fff);
    return L_Comp(30 - shift, extract_h(log));
}

int32_t Inv_sqrt(int32_t x) {
    if (x <= 0)
        return 0x3fffffff;
    int const shift = norm_l(x);
    int const exponent = 30 - shift;
    int32_t normalised = x << shift;
    if ((exponent & 1) == 0)
        normalised >>= 1;
    int32_t const root = interpolate(tabsqr, (normalised >> 25) - 16, (normalised >> 10) & 0x7fff);
    return root >> ((exponent >> 1) + 1);
}

}  // namespace g729a
