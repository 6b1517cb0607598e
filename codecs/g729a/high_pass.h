#pragma once

#include "codecs/g729a/g729a.h"
#include "codecs/g729a/oper_32b.h"

// One step of the second-order high pass of pre- and post-processing (G.729 3.1, 4.2.5).

namespace g729a {

// Filters one sample x with numerator b and denominator a (sign of a[1], a[2] reversed), both in the same Q
// format and none of them -32768; shift makes the sum Q16. Returns the output in Q16, which is also what the
// filter remembers.
constexpr int32_t high_pass(g729a_high_pass& state, int16_t x, int16_t const b[3], int16_t const a[3],
                            int shift) {
    int16_t const x2 = state.x1;
    state.x1 = state.x0;
    state.x0 = x;
    int32_t sum = L_add(Mpy_32_16(state.y1, a[1]), Mpy_32_16(state.y2, a[2]));
    sum = L_add(sum, state.x0 * b[0] * 2);
    sum = L_add(sum, state.x1 * b[1] * 2);
    sum = L_add(sum, x2 * b[2] * 2);
    int32_t const y = L_shl(sum, shift);
    state.y2 = state.y1;
    state.y1 = y;
    return y;
}

}  // namespace g729a
