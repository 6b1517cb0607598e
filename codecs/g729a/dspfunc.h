#pragma once

#include <cstdint>

/// Functions by table of the ITU-T coders: power and logarithm to the base 2, inverse square root, all by linear
/// interpolation.
namespace g729a {

/// 2^(exponent + fraction), fraction Q15 0..32767, exponent 0..30.
int32_t Pow2(int exponent, int32_t fraction);

/// log2(x) as a DPF value (basic_op.h): upper half the integer part, below it 15 bits of fraction. x <= 0 gives 0.
int32_t Log2(int32_t x);

/// 2^30 / sqrt(x); x <= 0 gives 0x3fffffff.
int32_t Inv_sqrt(int32_t x);

}  // namespace g729a
