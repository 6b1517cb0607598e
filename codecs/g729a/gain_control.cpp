#include "codecs/g729a/gain_control.h"

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/dspfunc.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int16_t keep = 29491;  // Q15, 0.9
constexpr int16_t renew = 3276;  // Q15, 0.1

// Energy of x / 4, clipped.
int32_t scaled_energy(const int16_t x[subframe_size]) {
    int16_t scaled[subframe_size];
    for (int i = 0; i < subframe_size; ++i)
        scaled[i] = static_cast<int16_t>(x[i] >> 2);
    return L_mac_sum(0, scaled, scaled, subframe_size);
}

// 0.1 of the root of the ratio of two energies, Q12.
int16_t renewed_part(int32_t in_energy, int32_t out_energy) {
    if (in_energy == 0)
        return 0;
    const int out_shift = norm_l(out_energy) - 1;  // one bit less keeps the mantissa below the other
    const int in_shift = norm_l(in_energy);
    const int16_t ratio = div_s(round(L_shl(out_energy, out_shift)), round(L_shl(in_energy, in_shift)));
    const int32_t root = Inv_sqrt(L_shr(L_shl(ratio, 7), out_shift - in_shift));
    return mult(round(L_shl(root, 9)), renew);
}

}  // namespace

void control_gain(const int16_t in[subframe_size], int16_t out[subframe_size], int16_t& gain) {
    const int32_t out_energy = scaled_energy(out);
    if (out_energy == 0) {
        gain = 0;
        return;
    }
    const int16_t part = renewed_part(scaled_energy(in), out_energy);
    for (int i = 0; i < subframe_size; ++i) {
        gain = add(mult(gain, keep), part);
        out[i] = sat16((out[i] * gain) >> 12);
    }
}

}  // namespace g729a
