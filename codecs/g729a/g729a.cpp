#include "codecs/g729a/g729a.h"

#include <cstring>

g729a_state* lrcodec_obj = nullptr;

int16_t* g729a_new_speech(g729a_state& state) {
    return state.coder.old_speech + 160;
}

void g729a_init(g729a_state& state) {
    state = {};
    lrcodec_obj = &state;
    Init_Pre_Process();
    Init_Coder_ld8a();
    Init_Decod_ld8a();
    Init_Post_Filter();
    Init_Post_Process();
}

void g729a_encode_frame(g729a_state& state, int16_t const pcm[80], uint8_t bytes[g729a_frame_bytes]) {
    lrcodec_obj = &state;
    int16_t* speech = g729a_new_speech(state);
    std::memcpy(speech, pcm, g729a_frame_samples * sizeof *pcm);
    Pre_Process(speech, g729a_frame_samples);
    int16_t parameters[g729a_parameters];
    Coder_ld8a(parameters);
    prm2bits_ld8k(parameters, bytes);
}

void g729a_decode_frame(g729a_state& state, uint8_t const bytes[g729a_frame_bytes], int16_t pcm[80]) {
    lrcodec_obj = &state;
    g729a_decoder& decoder = state.decoder;
    bits2prm_ld8k(bytes, decoder.parm + g729a_parm_first);
    decoder.parm[g729a_parm_bad_frame] = 0;
    decoder.parm[g729a_parm_parity] = 0;
    Decod_ld8a(decoder.parm, decoder.synth, decoder.a_t, decoder.t0);
    Post_Filter(decoder.synth, decoder.a_t, decoder.t0);
    Post_Process(decoder.synth, g729a_frame_samples);
    std::memcpy(pcm, decoder.synth, sizeof decoder.synth);
}
