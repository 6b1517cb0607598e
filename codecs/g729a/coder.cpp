#include <algorithm>
#include <cstring>

#include "codecs/g729a/adaptive_codebook.h"
#include "codecs/g729a/algebraic_codebook.h"
#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/g729a.h"
#include "codecs/g729a/gain_quantizer.h"
#include "codecs/g729a/lp_analysis.h"
#include "codecs/g729a/lp_filter.h"
#include "codecs/g729a/lsf_quantizer.h"
#include "codecs/g729a/lsp.h"
#include "codecs/g729a/open_loop_pitch.h"
#include "codecs/g729a/pitch_gain.h"

// The encoder (G.729 3, A.3): one frame from speech to parameters.

namespace {

using namespace g729a;

constexpr int16_t gamma_weighting = 24576;  // Q15, 0.75 (A.3.3)
constexpr int16_t tilt_weighting = 22938;   // Q15, 0.7 (A.3.4)
constexpr int16_t at_rest[lp_order] = {};

// LP filters of one subframe, Q12: quantized, and the same weighted.
struct subframe_filters {
    int16_t aq[lp_size];
    int16_t ap[lp_size];
};

// LP analysis, quantization and interpolation (A.3.2). Gives the first two parameters.
void analyse_spectrum(g729a_coder& coder, int16_t parameters[2], subframe_filters filters[subframes]) {
    int32_t r[lp_size];
    int16_t a[lp_size];
    autocorrelation(coder.old_speech, r);
    Levinson(r, a, coder.old_a);

    int16_t lsp[lp_order];
    int16_t lsf[lp_order];
    Az_lsp(a, lsp, coder.lsp_old);
    Lsp_lsf(lsp, lsf);
    lsf_codes const codes = quantize_lsf(lsf, coder.freq_prev);
    parameters[0] = static_cast<int16_t>(codes.mode << 7 | codes.first);
    parameters[1] = static_cast<int16_t>(codes.low << 5 | codes.high);

    int16_t lsp_q[lp_order];
    int16_t aq[subframes][lp_size];
    reconstruct_lsf(codes, coder.freq_prev, lsf);
    Lsf_lsp(lsf, lsp_q);
    Int_qlpc(coder.lsp_old_q, lsp_q, aq);
    for (int k = 0; k < subframes; ++k) {
        std::memcpy(filters[k].aq, aq[k], sizeof aq[k]);
        Weight_Az(aq[k], gamma_weighting, filters[k].ap);
    }
    std::memcpy(coder.lsp_old, lsp, sizeof lsp);
    std::memcpy(coder.lsp_old_q, lsp_q, sizeof lsp_q);
}

// LP residual into exc[0..39] and weighted speech for the open-loop search into wsp[0..39] (A.3.3, A.3.4).
void weight_speech(g729a_coder& coder, subframe_filters const& filters, int16_t const* speech, int16_t* exc,
                   int16_t* wsp) {
    Residu(filters.aq, speech, exc);
    int16_t a[lp_size] = {4096};
    for (int i = 1; i <= lp_order; ++i)
        a[i] = sub(filters.ap[i], mult(filters.ap[i - 1], tilt_weighting));
    Syn_filt(a, exc, wsp, subframe_size, coder.mem_w);
    update_memory(wsp, subframe_size, coder.mem_w);
}

// The vectors of one subframe, Q0 unless said otherwise.
struct subframe_vectors {
    int16_t h[subframe_size];     // impulse response of the weighted synthesis filter Q12
    int16_t xn[subframe_size];    // target
    int16_t y1[subframe_size];    // filtered adaptive codebook vector
    int16_t code[subframe_size];  // fixed codebook vector Q13
    int16_t y2[subframe_size];    // the same filtered Q12
};

// Impulse response (3.5, A.3.5) and target (A.3.6).
void prepare_search(g729a_coder const& coder, subframe_filters const& filters, int16_t const* exc,
                    subframe_vectors& v) {
    constexpr int16_t impulse[subframe_size] = {4096};
    Syn_filt(filters.ap, impulse, v.h, subframe_size, at_rest);
    Syn_filt(filters.ap, exc, v.xn, subframe_size, coder.mem_w0);
}

// xn2 = the target less the adaptive codebook's part (3.8.1); gain Q14.
void remove_adaptive_part(subframe_vectors const& v, int16_t gain, int16_t xn2[subframe_size]) {
    for (int i = 0; i < subframe_size; ++i)
        xn2[i] = sub(v.xn[i], sat16((v.y1[i] * gain) >> 14));
}

// Fixed codebook and gains for the adaptive vector in exc (3.7.3, A.3.8, 3.9); exc becomes the excitation.
// Gives three parameters.
void code_excitation(g729a_coder& coder, subframe_filters const& filters, pitch_delay delay, int16_t* exc,
                     subframe_vectors& v, int16_t parameters[3]) {
    gain_terms terms;
    Syn_filt(filters.ap, exc, v.y1, subframe_size, at_rest);
    int16_t gain = G_pitch(v.xn, v.y1, terms);
    bool const taming = test_err(coder.exc_err, delay.t0, delay.frac);
    if (taming)
        gain = std::min(gain, tamed_pitch_gain);

    int16_t xn2[subframe_size];
    remove_adaptive_part(v, gain, xn2);
    algebraic_code const pulse_code = ACELP_Code_A(xn2, v.h, delay.t0, coder.sharp, v.code, v.y2);
    Corr_xy2(v.xn, v.y1, v.y2, terms);
    quantized_gains const gains = Qua_gain(v.code, terms, taming, coder.past_qua_en);
    parameters[0] = pulse_code.positions;
    parameters[1] = pulse_code.signs;
    parameters[2] = gains.index;

    coder.sharp = next_sharp(gains.pitch);
    build_excitation(exc, v.code, gains.pitch, gains.code);
    update_exc_err(coder.exc_err, gains.pitch, delay.t0);
    for (int j = 0; j < lp_order; ++j) {  // A.3.10
        int const i = subframe_size - lp_order + j;
        int16_t const adaptive = sat16((v.y1[i] * gains.pitch) >> 14);
        int16_t const fixed = sat16((v.y2[i] * gains.code) >> 13);
        coder.mem_w0[j] = sub(v.xn[i], add(adaptive, fixed));
    }
}

}  // namespace

void Init_Coder_ld8a() {
    g729a_coder& coder = lrcodec_obj->coder;
    coder = {};
    std::memcpy(coder.lsp_old, lsp_init, sizeof coder.lsp_old);
    std::memcpy(coder.lsp_old_q, lsp_init, sizeof coder.lsp_old_q);
    for (auto& row : coder.freq_prev)
        std::memcpy(row, freq_prev_reset, sizeof row);
    coder.old_a[0] = 4096;
    coder.sharp = sharp_min;
    std::fill_n(coder.past_qua_en, gain_memory, gain_error_at_rest);
    std::fill_n(coder.exc_err, taming_zones, exc_err_at_rest);
}

void Coder_ld8a(int16_t parameters[g729a_parameters]) {
    g729a_coder& coder = lrcodec_obj->coder;
    int16_t* const speech = coder.old_speech + speech_past;
    int16_t* const exc = coder.old_exc + exc_past;
    int16_t* const wsp = coder.old_wsp + pit_max;

    subframe_filters filters[subframes];
    analyse_spectrum(coder, parameters, filters);
    for (int k = 0; k < subframes; ++k) {
        int const start = k * subframe_size;
        weight_speech(coder, filters[k], speech + start, exc + start, wsp + start);
    }

    subframe_vectors v;
    delay_range range = first_range(Pitch_ol_fast(wsp));
    prepare_search(coder, filters[0], exc, v);
    pitch_delay delay = Pitch_fr3_fast(exc, v.xn, v.h, range, true);
    parameters[2] = encode_first_delay(delay);
    parameters[3] = g729a_pitch_parity(parameters[2]);
    code_excitation(coder, filters[0], delay, exc, v, parameters + 4);

    range = second_range(delay.t0);
    prepare_search(coder, filters[1], exc + subframe_size, v);
    delay = Pitch_fr3_fast(exc + subframe_size, v.xn, v.h, range, false);
    parameters[7] = encode_second_delay(delay, range);
    code_excitation(coder, filters[1], delay, exc + subframe_size, v, parameters + 8);

    std::memmove(coder.old_speech, coder.old_speech + frame_size,
                 sizeof coder.old_speech - frame_size * sizeof *speech);
    std::memmove(coder.old_wsp, coder.old_wsp + frame_size, pit_max * sizeof *wsp);
    std::memmove(coder.old_exc, coder.old_exc + frame_size, exc_past * sizeof *exc);
}
