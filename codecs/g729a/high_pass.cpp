// The second-order high passes of pre- and post-processing (G.729 3.1, 4.2.5).

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/g729a.h"

namespace {

using namespace g729a;

// Numerators and denominators, the sign of a[1] and a[2] reversed: of the 140 Hz high pass Q12, the numerator halved
// (3.1); of the 100 Hz high pass Q13 (4.2.5).
constexpr int16_t b140[3] = {1899, -3798, 1899};
constexpr int16_t a140[3] = {4096, 7807, -3733};
constexpr int16_t b100[3] = {7699, -15398, 7699};
constexpr int16_t a100[3] = {8192, 15836, -7667};

// Filters one sample x; b and a are in one Q format, which shift makes Q16. Returns the output in Q16, which is also
// what the filter remembers.
inline int32_t high_pass(g729a_high_pass& state, int16_t x, int16_t const b[3], int16_t const a[3], int shift) {
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

}  // namespace

void Init_Pre_Process() {
    lrcodec_obj->pre_process = {};
}

void Pre_Process(int16_t* speech, int samples) {
    for (int i = 0; i < samples; ++i) {
        // b140 and a140 are Q12: three bits to the left make the sum Q16.
        speech[i] = round(high_pass(lrcodec_obj->pre_process, speech[i], b140, a140, 3));
    }
}

void Init_Post_Process() {
    lrcodec_obj->post_process = {};
}

void Post_Process(int16_t* synth, int samples) {
    for (int i = 0; i < samples; ++i) {
        // b100 and a100 are Q13: two bits to the left make the sum Q16, one more doubles the amplitude.
        synth[i] = round(L_shl(high_pass(lrcodec_obj->post_process, synth[i], b100, a100, 2), 1));
    }
}
