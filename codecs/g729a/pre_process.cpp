#include "codecs/g729a/g729a.h"
#include "codecs/g729a/high_pass.h"
#include "codecs/g729a/tables.h"

void Init_Pre_Process() {
    lrcodec_obj->pre_process = {};
}

void Pre_Process(int16_t* speech, int samples) {
    using namespace g729a;
    for (int i = 0; i < samples; ++i) {
        // b140 and a140 are Q12: three bits to the left make the sum Q16.
        speech[i] = round(high_pass(lrcodec_obj->pre_process, speech[i], b140, a140, 3));
    }
}
