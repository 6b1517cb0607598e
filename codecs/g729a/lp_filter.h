#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// The direct-form filters of order 10 that coder and decoder share (G.729 3.3, 3.5, 4.1.6). Coefficients are Q12
/// with a[0] = 4096; signals are Q0. Sums are Q13 and clip after every product, as the fixed-point Recommendation
/// does.
namespace g729a {

/// y = x[0..39] filtered by A(z); x[-10..-1] is the past. y must not overlap x.
void Residu(int16_t const a[lp_size], int16_t const* x, int16_t y[subframe_size]);

/// y[0..n-1] = x filtered by 1/A(z), after the outputs mem (newest last), which stay as they are. x and y may be the
/// same. Returns whether anything clipped. n is a multiple of ten and at most a subframe.
bool Syn_filt(int16_t const a[lp_size], int16_t const* x, int16_t* y, int n, int16_t const mem[lp_order]);

/// mem = the last ten of the n outputs y.
void update_memory(int16_t const* y, int n, int16_t mem[lp_order]);

/// ap(z) = a(z / gamma), gamma Q15 (3.3, A.4.2.2).
void Weight_Az(int16_t const a[lp_size], int16_t gamma, int16_t ap[lp_size]);

}  // namespace g729a
