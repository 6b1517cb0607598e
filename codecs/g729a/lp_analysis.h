#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// Linear prediction analysis of one frame (G.729 3.2.1, 3.2.2).
namespace g729a {

/// r = autocorrelation of the windowed speech x, lags 0..10, lag window applied, in double-precision format
/// (basic_op.h) with one common scale that makes r[0] 0x40000000 or more.
void autocorrelation(int16_t const x[window_size], int32_t r[lp_size]);

/// a = the LP filter of r, Q12. When a reflection coefficient comes too near to 1, a = old_a; else old_a = a.
void Levinson(int32_t const r[lp_size], int16_t a[lp_size], int16_t old_a[lp_size]);

}  // namespace g729a
