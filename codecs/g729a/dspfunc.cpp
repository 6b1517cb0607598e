#include "codecs/g729a/dspfunc.h"

#include "codecs/g729a/oper_32b.h"
#include "codecs/g729a/tables.h"

namespace g729a {

namespace {

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
