#pragma once

#include <bit>
#include <cstdint>

/// Basic operators of the fixed-point ITU-T coders under their usual names (basic_op.h, oper_32b.h): 16-bit and 32-bit
/// two's complement arithmetic that clips at the ends of the range. They keep no overflow flag: the five places of
/// G.729 Annex A that ask whether something clipped find out for themselves.
///
/// "16-bit" below is a value in -32768..32767, whatever type carries it. Arguments are taken as 32-bit words so that
/// callers need no casts; an argument out of its range is an error of the caller.
namespace g729a {

constexpr int32_t max_32 = INT32_MAX;
constexpr int32_t min_32 = INT32_MIN;

/// v clipped to 16 bits.
constexpr int16_t sat16(int32_t v) {
    return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
}

/// Lower and upper half of a 32-bit word, as signed words.
constexpr int16_t extract_l(int32_t x) {
    return static_cast<int16_t>(x);
}
constexpr int16_t extract_h(int32_t x) {
    return static_cast<int16_t>(x >> 16);
}

/// 16-bit sum, difference, negation and magnitude; -32768 gives 32767 in the last two.
constexpr int16_t add(int32_t a, int32_t b) {
    return sat16(a + b);
}
constexpr int16_t sub(int32_t a, int32_t b) {
    return sat16(a - b);
}
constexpr int16_t negate(int32_t a) {
    return sat16(-a);
}
constexpr int16_t abs_s(int32_t a) {
    return sat16(a < 0 ? -a : a);
}

/// floor(a b / 2^15) of two 16-bit words, clipped: the product of two Q15 values.
constexpr int16_t mult(int32_t a, int32_t b) {
    return sat16((a * b) >> 15);
}

/// mult() with rounding.
constexpr int16_t mult_r(int32_t a, int32_t b) {
    return sat16((a * b + 0x4000) >> 15);
}

/// 2 a b of two 16-bit words; -32768 * -32768 gives 2^31 - 1.
constexpr int32_t L_mult(int32_t a, int32_t b) {
    int32_t const product = a * b;
    return product == 0x40000000 ? max_32 : product * 2;
}

/// 32-bit sum and difference, clipped.
constexpr int32_t L_add(int32_t a, int32_t b) {
    int32_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? (a < 0 ? min_32 : max_32) : sum;
}
constexpr int32_t L_sub(int32_t a, int32_t b) {
    int32_t difference = 0;
    return __builtin_sub_overflow(a, b, &difference) ? (a < 0 ? min_32 : max_32) : difference;
}

/// x + 2 a b and x - 2 a b: the product is clipped first, then the sum.
constexpr int32_t L_mac(int32_t x, int32_t a, int32_t b) {
    return L_add(x, L_mult(a, b));
}
constexpr int32_t L_msu(int32_t x, int32_t a, int32_t b) {
    return L_sub(x, L_mult(a, b));
}

/// 32-bit negation and magnitude; -2^31 gives 2^31 - 1.
constexpr int32_t L_negate(int32_t x) {
    return x == min_32 ? max_32 : -x;
}
constexpr int32_t L_abs(int32_t x) {
    return x < 0 ? L_negate(x) : x;
}

/// a as the upper half of a 32-bit word.
constexpr int32_t L_deposit_h(int32_t a) {
    return a * 65536;
}

/// x times 2^n, clipped; a negative n shifts right (floor). Any n.
constexpr int32_t L_shl(int32_t x, int n) {
    if (n <= 0)
        return x >> (n < -31 ? 31 : -n);
    if (n > 31)
        n = 31;
    if (x > (max_32 >> n))
        return max_32;
    if (x < (min_32 >> n))
        return min_32;
    return x << n;
}

/// floor(x / 2^n); a negative n shifts left and clips. Any n.
constexpr int32_t L_shr(int32_t x, int n) {
    return L_shl(x, -n);
}

/// x / 2^n rounded to the nearest, halves upwards; n above 31 gives 0, n <= 0 is L_shr().
constexpr int32_t L_shr_r(int32_t x, int n) {
    if (n > 31)
        return 0;
    return n <= 0 ? L_shr(x, n) : (x >> n) + ((x >> (n - 1)) & 1);
}

/// 16-bit a times 2^n, clipped; a negative n shifts right (floor). Any n.
constexpr int16_t shl(int32_t a, int n) {
    return n > 0 ? sat16(L_shl(a, n)) : extract_l(L_shl(a, n));
}

/// floor(a / 2^n) of a 16-bit word; a negative n shifts left and clips. Any n.
constexpr int16_t shr(int32_t a, int n) {
    return shl(a, -n);
}

/// Upper half of x after rounding, clipped.
constexpr int16_t round(int32_t x) {
    return extract_h(L_add(x, 0x8000));
}

/// Left shifts that bring x to 0x40000000..0x7fffffff or below -0x40000000; 0 gives 0, -1 gives 31.
constexpr int norm_l(int32_t x) {
    if (x == 0)
        return 0;
    return std::countl_zero(static_cast<uint32_t>(x < 0 ? ~x : x)) - 1;
}

/// Left shifts that bring a 16-bit word to 16384..32767 or below -16384; 0 gives 0, -1 gives 15.
constexpr int norm_s(int32_t a) {
    return a == 0 ? 0 : norm_l(a) - 16;
}

/// a / b in Q15 for 0 <= a <= b, b > 0, a == b giving 32767; anything else gives 0.
constexpr int16_t div_s(int32_t a, int32_t b) {
    if (a < 0 || b <= 0 || a > b)
        return 0;
    return sat16((a << 15) / b);
}

// Double-precision format (DPF): a 32-bit value is multiplied as a pair of words, hi = its upper half and lo = the next
// 15 bits, and its lowest bit is lost. Here the pair stays together in one word, value = hi * 2^16 + lo * 2 with hi
// -32768..32767 and lo 0..32767; the products below ignore the lowest bit.

/// x without the bit that the pair does not hold, for sums with other values.
constexpr int32_t L_Extract(int32_t x) {
    return x & ~1;
}

/// lo of the pair; hi is extract_h().
constexpr int32_t dpf_lo(int32_t x) {
    return (x >> 1) & 0x7fff;
}

/// The DPF value of a pair.
constexpr int32_t L_Comp(int32_t hi, int32_t lo) {
    return L_mac(L_deposit_h(hi), lo, 1);
}

/// x y / 2^31 of two DPF values, low times low left out.
constexpr int32_t Mpy_32(int32_t x, int32_t y) {
    int32_t const product = L_mult(extract_h(x), extract_h(y));
    int32_t const sum = L_mac(product, mult(extract_h(x), dpf_lo(y)), 1);
    return L_mac(sum, mult(dpf_lo(x), extract_h(y)), 1);
}

/// x n / 2^16 of a DPF value and a 16-bit word. As x / 2 = hi 2^15 + lo, floor(x n / 2^16) is hi n + floor(lo n /
/// 2^15): one product for two, of which the upper word is the result.
constexpr int32_t half_Mpy_32_16(int32_t x, int32_t n) {
    return static_cast<int32_t>((static_cast<int64_t>(L_Extract(x)) * (n * 65536)) >> 32);
}

/// x n / 2^15 of a DPF value and a 16-bit word other than -32768, for which the product cannot leave 32 bits.
constexpr int32_t Mpy_32_16(int32_t x, int32_t n) {
    return half_Mpy_32_16(x, n) * 2;
}

/// numerator / denominator in Q31 of two DPF values, 0 <= numerator < denominator, denominator normalised
/// (G.729 3.2.2). A numerator that is not smaller gives a clipped or meaningless value, never a trap.
constexpr int32_t Div_32(int32_t numerator, int32_t denominator) {
    int32_t const approximation = div_s(16383, extract_h(denominator));
    int32_t const error = L_sub(max_32, Mpy_32_16(denominator, approximation));
    int32_t const inverse = Mpy_32_16(error, approximation);
    return L_shl(Mpy_32(numerator, inverse), 2);
}

}  // namespace g729a
