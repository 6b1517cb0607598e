#pragma once

#include <cstdint>

// Linear prediction analysis of one frame (G.729 3.2.1, 3.2.2).

namespace g729a {

// r[0..10] = autocorrelation of the windowed speech x[0..239], lag window applied, in double-precision format
// with one common scale that makes r[0] 0x40000000 or more.
void autocorrelation(int16_t const x[240], int32_t r[11]);

// a[0..10] = the LP filter of r, Q12. When a reflection coefficient comes too near to 1, a = old_a; else
// old_a = a.
void Levinson(int32_t const r[11], int16_t a[11], int16_t old_a[11]);

}  // namespace g729a
