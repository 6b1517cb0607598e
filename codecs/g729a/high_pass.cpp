// The second-order high passes of pre- and post-processing (G.729 3.1, 4.2.5).

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/g729a.h"

namespace {

using namespace g729a;

// H(z) = b (1 - 2 z^-1 + z^-2) / (1 - a1 z^-1 - a2 z^-2), b and a in one Q format, in which sums are doubled; shift
// makes half a sum Q16.
struct coefficients {
    int32_t b, a1, a2;
    int shift;
};
constexpr coefficients hz_140 = {1899, 7807, -3733, 4};   // Q12, the numerator halved (3.1)
constexpr coefficients hz_100 = {7699, 15836, -7667, 3};  // Q13 (4.2.5)

// Filters in place. Half a sum is 2^12 times the sample that either filter gives, whose amplitude the second doubles.
//
// The sum is clipped once, when it becomes an output Q16. Clipping it at each addition as well changes nothing: the
// products with a1 and a2 and the first with b stay below 2^31 together, and when the second takes it beyond, the
// third, less than 2^29, does not bring it back below what is clipped then, 2^29.
inline void high_pass(g729a_high_pass& state, int16_t* samples, int n, coefficients const& c) {
    int32_t x0 = state.x0, x1 = state.x1, y1 = state.y1, y2 = state.y2;
    for (int i = 0; i < n; ++i) {
        int32_t const x2 = x1;
        x1 = x0;
        x0 = samples[i];
        int32_t const half_sum = half_Mpy_32_16(y1, c.a1) + half_Mpy_32_16(y2, c.a2) + (x0 - 2 * x1 + x2) * c.b;
        y2 = y1;
        y1 = L_shl(half_sum, c.shift);
        samples[i] = sat16((half_sum + 0x800) >> 12);
    }
    state = {static_cast<int16_t>(x0), static_cast<int16_t>(x1), y1, y2};
}

}  // namespace

void Init_Pre_Process() {
    lrcodec_obj->pre_process = {};
}

void Pre_Process(int16_t* speech, int samples) {
    high_pass(lrcodec_obj->pre_process, speech, samples, hz_140);
}

void Init_Post_Process() {
    lrcodec_obj->post_process = {};
}

void Post_Process(int16_t* synth, int samples) {
    high_pass(lrcodec_obj->post_process, synth, samples, hz_100);
}
