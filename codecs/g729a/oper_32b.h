#pragma once

#include "codecs/g729a/basic_op.h"

// Double-precision format (DPF) of the ITU-T coders: a 32-bit value is multiplied as a pair of words, hi =
// its upper half and lo = the next 15 bits, and its lowest bit is lost. Here the pair stays together in one
// word, value = hi * 2^16 + lo * 2 with hi -32768..32767 and lo 0..32767; the products below ignore the
// lowest bit.

namespace g729a {

// x without the bit that the pair does not hold, for sums with other values.
constexpr int32_t L_Extract(int32_t x) {
    return x & ~1;
}

// lo of the pair; hi is extract_h().
constexpr int32_t dpf_lo(int32_t x) {
    return (x >> 1) & 0x7fff;
}

// The DPF value of a pair.
constexpr int32_t L_Comp(int32_t hi, int32_t lo) {
    return L_mac(L_deposit_h(hi), lo, 1);
}

// x y / 2^31 of two DPF values, low times low left out.
constexpr int32_t Mpy_32(int32_t x, int32_t y) {
    int32_t const product = L_mult(extract_h(x), extract_h(y));
    int32_t const sum = L_mac(product, mult(extract_h(x), dpf_lo(y)), 1);
    return L_mac(sum, mult(dpf_lo(x), extract_h(y)), 1);
}

// x n / 2^15 of a DPF value and a 16-bit word other than -32768, for which the product cannot leave 32 bits.
// As x / 2 = hi 2^15 + lo, floor(x n / 2^16) is hi n + floor(lo n / 2^15): one product for two.
constexpr int32_t Mpy_32_16(int32_t x, int32_t n) {
    return static_cast<int32_t>((static_cast<int64_t>(x >> 1) * n) >> 15) * 2;
}

// numerator / denominator in Q31 of two DPF values, 0 <= numerator < denominator, denominator normalised
// (G.729 3.2.2). A numerator that is not smaller gives a clipped or meaningless value, never a trap.
constexpr int32_t Div_32(int32_t numerator, int32_t denominator) {
    int32_t const approximation = div_s(16383, extract_h(denominator));
    int32_t const error = L_sub(max_32, Mpy_32_16(denominator, approximation));
    int32_t const inverse = Mpy_32_16(error, approximation);
    return L_shl(Mpy_32(numerator, inverse), 2);
}

}  // namespace g729a
