#include "codecs/g729a/g729a.h"
#include "codecs/g729a/high_pass.h"
#include "codecs/g729a/tables.h"

void Init_Post_Process() {
    lrcodec_obj->post_process = {};
}

void Post_Process(int16_t* synth, int samples) {
    using namespace g729a;
    for (int i = 0; i < samples; ++i) {
        // b100 and a100 are Q13: two bits to the left make the sum Q16, one more doubles the amplitude.
        synth[i] = round(L_shl(high_pass(lrcodec_obj->post_process, synth[i], b100, a100, 2), 1));
    }
}
