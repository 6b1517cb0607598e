#include <algorithm>
#include <cstring>

#include "codecs/g729a/adaptive_codebook.h"
#include "codecs/g729a/algebraic_codebook.h"
#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/g729a.h"
#include "codecs/g729a/gain_quantizer.h"
#include "codecs/g729a/lp_filter.h"
#include "codecs/g729a/lsf_quantizer.h"
#include "codecs/g729a/lsp.h"

// The decoder as far as the synthesis filter (G.729 4.1, A.4.1), with concealment of lost frames (4.4).

namespace {

using namespace g729a;

constexpr int16_t first_seed = 21845;       // 4.4.4
constexpr int16_t lost_gain_pitch = 29491;  // Q15 factor 0.9, and Q14 limit 1.8 (4.4.2)
constexpr int16_t lost_gain_code = 32111;   // Q15 factor 0.98 (4.4.2)

// Next value of the generator of lost frames' pulses (4.4.4, equation 96).
int16_t next_random(int16_t& seed) {
    seed = extract_l(seed * 31821 + 13849);
    return seed;
}

// LSF of the frame (4.1.1); a lost frame repeats the last ones (4.4.1).
void decode_spectrum(g729a_decoder& decoder, int16_t const* parameters, bool lost) {
    if (lost) {
        repeat_lsf(decoder.prev_lsf, decoder.prev_ma, decoder.freq_prev);
        return;
    }
    lsf_codes const codes = {(parameters[0] >> 7) & 1, parameters[0] & 127, (parameters[1] >> 5) & 31,
                             parameters[1] & 31};
    reconstruct_lsf(codes, decoder.freq_prev, decoder.prev_lsf);
    decoder.prev_ma = static_cast<int16_t>(codes.mode);
}

// The delay that stands in for a lost or damaged one (4.1.2, 4.4): the last, one longer each time.
pitch_delay repeat_delay(g729a_decoder& decoder) {
    pitch_delay const delay = {decoder.old_t0, 0};
    decoder.old_t0 = static_cast<int16_t>(std::min(decoder.old_t0 + 1, pit_max));
    return delay;
}

// Excitation of a subframe from positions, signs and gain index (4.1.4 - 4.1.6).
void decode_excitation(g729a_decoder& decoder, pitch_delay delay, int16_t const* parameters, bool lost, int16_t* exc) {
    Pred_lt_3(exc, delay.t0, delay.frac);
    algebraic_code pulse_code = {parameters[0], parameters[1]};
    if (lost) {
        pulse_code.positions = next_random(decoder.seed) & 0x1fff;
        pulse_code.signs = next_random(decoder.seed) & 0xf;
    }
    int16_t code[subframe_size];
    Decod_ACELP(pulse_code, code);
    sharpen(code, delay.t0, decoder.sharp);
    if (lost) {
        decoder.gain_pitch = std::min(mult(decoder.gain_pitch, lost_gain_pitch), lost_gain_pitch);
        decoder.gain_code = mult(decoder.gain_code, lost_gain_code);
        Gain_update_erasure(decoder.past_qua_en);
    } else {
        quantized_gains const gains = Dec_gain(parameters[2], code, decoder.past_qua_en);
        decoder.gain_pitch = gains.pitch;
        decoder.gain_code = gains.code;
    }
    decoder.sharp = next_sharp(decoder.gain_pitch);
    build_excitation(exc, code, decoder.gain_pitch, decoder.gain_code);
}

// Synthesis of a subframe. When it overflows, all excitation is divided by 4 for good and filtered again.
void synthesize(g729a_decoder& decoder, int16_t const* a, int16_t const* exc, int16_t* synth) {
    if (Syn_filt(a, exc, synth, subframe_size, decoder.mem_syn)) {
        for (int16_t& sample : decoder.old_exc)
            sample = static_cast<int16_t>(sample >> 2);
        Syn_filt(a, exc, synth, subframe_size, decoder.mem_syn);
    }
    update_memory(synth, subframe_size, decoder.mem_syn);
}

}  // namespace

void Init_Decod_ld8a() {
    g729a_decoder& decoder = lrcodec_obj->decoder;
    decoder = {};
    std::memcpy(decoder.lsp_old, lsp_init, sizeof decoder.lsp_old);
    std::memcpy(decoder.prev_lsf, freq_prev_reset, sizeof decoder.prev_lsf);
    for (auto& row : decoder.freq_prev)
        std::memcpy(row, freq_prev_reset, sizeof row);
    decoder.old_t0 = 60;
    decoder.sharp = sharp_min;
    decoder.seed = first_seed;
    std::fill_n(decoder.past_qua_en, gain_memory, gain_error_at_rest);
}

void Decod_ld8a(int16_t const parm[g729a_parm_words], int16_t synth[frame_size], int16_t a_t[subframes][lp_size],
                int16_t t0[subframes]) {
    g729a_decoder& decoder = lrcodec_obj->decoder;
    bool const lost = parm[g729a_parm_bad_frame] != 0;
    decode_spectrum(decoder, parm + g729a_parm_first, lost);
    int16_t lsp[lp_order];
    Lsf_lsp(decoder.prev_lsf, lsp);
    Int_qlpc(decoder.lsp_old, lsp, a_t);
    std::memcpy(decoder.lsp_old, lsp, sizeof lsp);

    int16_t* const exc = decoder.old_exc + exc_past;
    pitch_delay delay;
    if (lost || parm[g729a_parm_parity] != 0) {
        delay = repeat_delay(decoder);
    } else {
        delay = decode_first_delay(parm[g729a_parm_p1]);
        decoder.old_t0 = static_cast<int16_t>(delay.t0);
    }
    t0[0] = static_cast<int16_t>(delay.t0);
    decode_excitation(decoder, delay, parm + g729a_parm_code1, lost, exc);
    synthesize(decoder, a_t[0], exc, synth);

    if (lost) {
        delay = repeat_delay(decoder);
    } else {
        delay = decode_second_delay(parm[g729a_parm_p2], delay.t0);
        decoder.old_t0 = static_cast<int16_t>(delay.t0);
    }
    t0[1] = static_cast<int16_t>(delay.t0);
    decode_excitation(decoder, delay, parm + g729a_parm_code2, lost, exc + subframe_size);
    synthesize(decoder, a_t[1], exc + subframe_size, synth + subframe_size);
    std::memmove(decoder.old_exc, decoder.old_exc + frame_size, exc_past * sizeof *exc);
}
