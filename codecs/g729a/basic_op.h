#pragma once

#include <bit>
#include <cstdint>

// Basic operators of the fixed-point ITU-T coders under their usual names: 16-bit and 32-bit two's complement
// arithmetic that clips at the ends of the range. They keep no overflow flag: the five places of G.729 Annex
// A that ask whether something clipped find out for themselves.
//
// "16-bit" below is a value in -32768..32767, whatever type carries it. Arguments are taken as 32-bit words
// so that callers need no casts; an argument out of its range is an error of the caller.

namespace g729a {

constexpr int32_t max_32 = INT32_MAX;
constexpr int32_t min_32 = INT32_MIN;

// v clipped to 16 bits.
constexpr int16_t sat16(int32_t v) {
    return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
}

// Lower and upper half of a 32-bit word, as signed words.
constexpr int16_t extract_l(int32_t x) {
    return static_cast<int16_t>(x);
}
constexpr int16_t extract_h(int32_t x) {
    return static_cast<int16_t>(x >> 16);
}

// 16-bit sum, difference, negation and magnitude; -32768 gives 32767 in the last two.
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

// floor(a b / 2^15) of two 16-bit words, clipped: the product of two Q15 values.
constexpr int16_t mult(int32_t a, int32_t b) {
    return sat16((a * b) >> 15);
}

// mult() with rounding.
constexpr int16_t mult_r(int32_t a, int32_t b) {
    return sat16((a * b + 0x4000) >> 15);
}

// 2 a b of two 16-bit words; -32768 * -32768 gives 2^31 - 1.
constexpr int32_t L_mult(int32_t a, int32_t b) {
    int32_t const product = a * b;
    return product == 0x40000000 ? max_32 : product * 2;
}

// 32-bit sum and difference, clipped.
constexpr int32_t L_add(int32_t a, int32_t b) {
    int32_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? (a < 0 ? min_32 : max_32) : sum;
}
constexpr int32_t L_sub(int32_t a, int32_t b) {
    int32_t difference = 0;
    return __builtin_sub_overflow(a, b, &difference) ? (a < 0 ? min_32 : max_32) : difference;
}

// x + 2 a b and x - 2 a b: the product is clipped first, then the sum.
constexpr int32_t L_mac(int32_t x, int32_t a, int32_t b) {
    return L_add(x, L_mult(a, b));
}
constexpr int32_t L_msu(int32_t x, int32_t a, int32_t b) {
    return L_sub(x, L_mult(a, b));
}

// 32-bit negation and magnitude; -2^31 gives 2^31 - 1.
constexpr int32_t L_negate(int32_t x) {
    return x == min_32 ? max_32 : -x;
}
constexpr int32_t L_abs(int32_t x) {
    return x < 0 ? L_negate(x) : x;
}

// a as the upper half of a 32-bit word.
constexpr int32_t L_deposit_h(int32_t a) {
    return a * 65536;
}

// x times 2^n, clipped; a negative n shifts right (floor). Any n.
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

// floor(x / 2^n); a negative n shifts left and clips. Any n.
constexpr int32_t L_shr(int32_t x, int n) {
    return L_shl(x, -n);
}

// x / 2^n rounded to the nearest, halves upwards; n above 31 gives 0, n <= 0 is L_shr().
constexpr int32_t L_shr_r(int32_t x, int n) {
    if (n > 31)
        return 0;
    return n <= 0 ? L_shr(x, n) : (x >> n) + ((x >> (n - 1)) & 1);
}

// 16-bit a times 2^n, clipped; a negative n shifts right (floor). Any n.
constexpr int16_t shl(int32_t a, int n) {
    return n > 0 ? sat16(L_shl(a, n)) : extract_l(L_shl(a, n));
}

// floor(a / 2^n) of a 16-bit word; a negative n shifts left and clips. Any n.
constexpr int16_t shr(int32_t a, int n) {
    return shl(a, -n);
}

// Upper half of x after rounding, clipped.
constexpr int16_t round(int32_t x) {
    return extract_h(L_add(x, 0x8000));
}

// Left shifts that bring x to 0x40000000..0x7fffffff or below -0x40000000; 0 gives 0, -1 gives 31.
constexpr int norm_l(int32_t x) {
    if (x == 0)
        return 0;
    return std::countl_zero(static_cast<uint32_t>(x < 0 ? ~x : x)) - 1;
}

// Left shifts that bring a 16-bit word to 16384..32767 or below -16384; 0 gives 0, -1 gives 15.
constexpr int norm_s(int32_t a) {
    return a == 0 ? 0 : norm_l(a) - 16;
}

// a / b in Q15 for 0 <= a <= b, b > 0, a == b giving 32767; anything else gives 0.
constexpr int16_t div_s(int32_t a, int32_t b) {
    if (a < 0 || b <= 0 || a > b)
        return 0;
    return sat16((a << 15) / b);
}

}  // namespace g729a
