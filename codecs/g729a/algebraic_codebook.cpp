#include "codecs/g729a/algebraic_codebook.h"

#include <algorithm>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/dimensions.h"

namespace g729a {

void Decod_ACELP(algebraic_code transmitted, int16_t code[subframe_size]) {
    int const c = transmitted.positions;
    int const position[pulses] = {
        (c & 7) * track_step,
        ((c >> 3) & 7) * track_step + 1,
        ((c >> 6) & 7) * track_step + 2,
        ((c >> 10) & 7) * track_step + 3 + ((c >> 9) & 1),
    };
    std::fill_n(code, subframe_size, int16_t{0});
    for (int k = 0; k < pulses; ++k)
        code[position[k]] = (transmitted.signs >> k) & 1 ? 8191 : -8192;
}

algebraic_code encode_pulses(int const position[pulses], bool const positive[pulses]) {
    int const fourth = position[3] / track_step * 2 + position[3] % track_step - 3;
    int const positions = position[0] / track_step | position[1] / track_step << 3 |
                          position[2] / track_step << 6 | fourth << 9;
    int signs = 0;
    for (int k = 0; k < pulses; ++k)
        signs |= positive[k] << k;
    return {static_cast<int16_t>(positions), static_cast<int16_t>(signs)};
}

void sharpen(int16_t x[subframe_size], int t0, int16_t sharp) {
    int16_t const factor = shl(sharp, 1);  // Q15
    for (int i = t0; i < subframe_size; ++i)
        x[i] = add(x[i], mult(x[i - t0], factor));
}

}  // namespace g729a
