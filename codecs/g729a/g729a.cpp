#include "codecs/g729a/g729a.h"

#include <cstring>

namespace {

// Bits of the parameters in the order of transmission (Table 8).
constexpr int widths[g729a_parameters] = {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7};

/// The frame whose parameters are in place.
void decode(g729a_state& state, int16_t pcm[g729a_frame_samples]) {
    g729a_decoder& decoder = state.decoder;
    Decod_ld8a(decoder.parm, decoder.synth, decoder.a_t, decoder.t0);
    Post_Filter(decoder.synth, decoder.a_t, decoder.t0);
    Post_Process(decoder.synth, g729a_frame_samples);
    std::memcpy(pcm, decoder.synth, sizeof decoder.synth);
}

}  // namespace

g729a_state* lrcodec_obj = nullptr;

int16_t* g729a_new_speech(g729a_state& state) {
    return state.coder.old_speech + g729a::window_size - g729a::frame_size;
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

void g729a_encode_frame(g729a_state& state, int16_t const pcm[g729a_frame_samples], uint8_t bytes[g729a_frame_bytes]) {
    lrcodec_obj = &state;
    int16_t* speech = g729a_new_speech(state);
    std::memcpy(speech, pcm, g729a_frame_samples * sizeof *pcm);
    Pre_Process(speech, g729a_frame_samples);
    int16_t parameters[g729a_parameters];
    Coder_ld8a(parameters);
    prm2bits_ld8k(parameters, bytes);
}

void g729a_decode_frame(g729a_state& state, uint8_t const bytes[g729a_frame_bytes], int16_t pcm[g729a_frame_samples]) {
    lrcodec_obj = &state;
    g729a_decoder& decoder = state.decoder;
    bits2prm_ld8k(bytes, decoder.parm + g729a_parm_first);
    decoder.parm[g729a_parm_bad_frame] = 0;
    decoder.parm[g729a_parm_parity] = 0;
    decode(state, pcm);
}

void g729a_conceal_frame(g729a_state& state, int16_t pcm[g729a_frame_samples]) {
    lrcodec_obj = &state;
    state.decoder.parm[g729a_parm_bad_frame] = 1;
    state.decoder.parm[g729a_parm_parity] = 0;
    decode(state, pcm);
}

void prm2bits_ld8k(int16_t const parameters[g729a_parameters], uint8_t bytes[g729a_frame_bytes]) {
    uint32_t pending = 0;  // bits not yet written, at most 7 + 13
    int pending_bits = 0;
    for (int i = 0; i < g729a_parameters; ++i) {
        uint32_t const mask = (1u << widths[i]) - 1;
        pending = pending << widths[i] | (static_cast<uint32_t>(parameters[i]) & mask);
        pending_bits += widths[i];
        for (; pending_bits >= 8; pending_bits -= 8)
            *bytes++ = static_cast<uint8_t>(pending >> (pending_bits - 8));
    }
}

void bits2prm_ld8k(uint8_t const bytes[g729a_frame_bytes], int16_t parameters[g729a_parameters]) {
    uint32_t pending = 0;
    int pending_bits = 0;
    for (int i = 0; i < g729a_parameters; ++i) {
        for (; pending_bits < widths[i]; pending_bits += 8)
            pending = pending << 8 | *bytes++;
        pending_bits -= widths[i];
        uint32_t const mask = (1u << widths[i]) - 1;
        parameters[i] = static_cast<int16_t>((pending >> pending_bits) & mask);
    }
}

// G.729 3.7.2: the bit sent is the complement of the XOR of the six bits.
int16_t g729a_pitch_parity(int16_t p1) {
    int16_t parity = 1;
    for (int bit = 2; bit < 8; ++bit)
        parity = static_cast<int16_t>(parity ^ ((p1 >> bit) & 1));
    return parity;
}
