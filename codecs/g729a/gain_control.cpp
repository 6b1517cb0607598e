#include "codecs/g729a/gain_control.h"

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/dspfunc.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int16_t keep = 29491;  // Q15, 0.9
constexpr int16_t renew = 3276;  // Q15, 0.1

// Energy of x / 4, clipped.
int32_t scaled_energy(int16_t const x[subframe_size]) {
    int16_t scaled[subframe_size];
    for (int i = 0; i < subframe_size; ++i)
        scaled[i] = static_cast<int16_t>(x[i] >> 2);
    return L_mac_sum(0, scaled, scaled, subframe_size);
}

// 0.1 of the root of the ratio of two energies, Q12.
int16_t renewed_part(int32_t in_energy, int32_t out_energy) {
    if (in_energy == 0)
        return 0;
    int const out_shift = norm_l(out_energy) - 1;  // one bit less keeps the mantissa below the other
    int const in_shift = norm_l(in_energy);
    int16_t const ratio = div_s(round(L_shl(out_energy, out_shift)), round(L_shl(in_energy, in_shift)));
    int32_t const root = Inv_sqrt(L_shr(L_shl(ratio, 7), out_shift - in_shift));
    return mult(round(L_shl(root, 9)), renew);
}

}  // namespace

void control_gain(int16_t const in[subframe_size], int16_t out[subframe_size], int16_t& gain) {
    int32_t const out_energy = scaled_energy(out);
    if (out_energy == 0) {
        gain = 0;
        return;
    }
    int16_t const part = renewed_part(scaled_energy(in), out_energy);
    for (int i = 0; i < subframe_size; ++i) {
        gain = add(mult(gain, keep), part);
        out[i] = sat16((out[i] * gain) >> 12);
    }
}

}  // namespace g729a
