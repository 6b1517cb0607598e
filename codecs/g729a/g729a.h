#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// ITU-T G.729 Annex A speech coder, 8 kbit/s, fixed point, bit-exact: 80 samples of 8 kHz PCM (10 ms) to and from 10
/// octets. Silence compression (Annex B) is not part of it; lost frames are concealed (4.4) when the caller says that
/// one is lost. Numbers in brackets are sections of G.729 and its Annex A.
///
/// All memory of a coder and a decoder is one plain struct that the caller owns; nothing is allocated. The entry points
/// reach it through the global lrcodec_obj, so only one frame can be in work at a time (one thread).
/// g729a_encode_frame() and g729a_decode_frame() do all that is to be done for a frame.

constexpr int g729a_frame_samples = g729a::frame_size;
constexpr int g729a_frame_bytes = 10;  ///< RFC 3551 4.5.6
constexpr int g729a_parameters = 11;   ///< PRM_SIZE, codewords of a frame (Table 8)

/// Words of the decoder's parameter array: the bad-frame word, then the parameters in the order of transmission. The
/// caller replaces the received parity bit by the parity-error word.
enum g729a_parm : int {
    g729a_parm_bad_frame = 0,  ///< not 0: the frame is lost, the parameters mean nothing
    g729a_parm_first = 1,      ///< L0 L1, then L2 L3
    g729a_parm_p1 = 3,         ///< pitch delay of the first subframe
    g729a_parm_parity = 4,     ///< as received: P0; to the decoder: not 0: P1 is not to be trusted
    g729a_parm_code1 = 5,      ///< C1, S1, GA1 GB1
    g729a_parm_p2 = 8,         ///< pitch delay of the second subframe
    g729a_parm_code2 = 9,      ///< C2, S2, GA2 GB2
    g729a_parm_words = 1 + g729a_parameters
};

/// Second-order high pass of pre- and post-processing (3.1, 4.2.5).
struct g729a_high_pass {
    int16_t x0, x1;  ///< last two inputs, newest first
    int32_t y1, y2;  ///< last two outputs Q16, newest first
};

/// Memory of the encoder (3). Signals are Q0, LSP Q15, filters Q12 unless said otherwise; a buffer that is as long as
/// its past and a frame holds the past in front.
struct g729a_coder {
    int16_t old_speech[g729a::window_size];               ///< high-passed input: past, the frame being coded, lookahead
    int16_t old_wsp[g729a::pit_max + g729a::frame_size];  ///< weighted speech
    int16_t old_exc[g729a::exc_past + g729a::frame_size];   ///< excitation
    int16_t old_a[g729a::lp_size];                          ///< last stable LP filter
    int16_t lsp_old[g729a::lp_order];                       ///< LSP of the last frame, before quantization
    int16_t lsp_old_q[g729a::lp_order];                     ///< the same after quantization
    int16_t freq_prev[g729a::lsf_memory][g729a::lp_order];  ///< past LSF quantizer outputs Q13, newest first
    int16_t mem_w[g729a::lp_order];                         ///< memory of the open-loop weighting filter
    int16_t mem_w0[g729a::lp_order];                        ///< memory of the target's weighting filter
    int16_t sharp;                                          ///< pitch sharpening Q14
    int16_t past_qua_en[g729a::gain_memory];                ///< past gain prediction errors Q10 dB, newest first
    int32_t exc_err[g729a::taming_zones];                   ///< bound of the excitation error by delay Q14 (taming)
};

/// Memory of the decoder (4.1, 4.4) and what it hands to the post-filter.
struct g729a_decoder {
    int16_t parm[g729a_parm_words];                         ///< the frame's parameters, see g729a_parm
    int16_t synth[g729a::frame_size];                       ///< output Q0, at half amplitude until Post_Process()
    int16_t a_t[g729a::subframes][g729a::lp_size];          ///< LP filter of each subframe Q12
    int16_t t0[g729a::subframes];                           ///< integer pitch delay of each subframe
    int16_t old_exc[g729a::exc_past + g729a::frame_size];   ///< excitation
    int16_t mem_syn[g729a::lp_order];                       ///< last synthesis outputs
    int16_t lsp_old[g729a::lp_order];                       ///< quantized LSP of the last frame Q15
    int16_t freq_prev[g729a::lsf_memory][g729a::lp_order];  ///< past LSF quantizer outputs Q13, newest first
    int16_t prev_lsf[g729a::lp_order];                      ///< LSF of the last frame Q13
    int16_t prev_ma;                                        ///< MA mode of the last good frame
    int16_t old_t0;                                         ///< last pitch delay
    int16_t sharp;                                          ///< pitch sharpening Q14
    int16_t gain_pitch, gain_code;                          ///< last gains Q14, Q1
    int16_t past_qua_en[g729a::gain_memory];                ///< past gain prediction errors Q10 dB, newest first
    int16_t seed;                                           ///< pulses of lost frames
};

/// Memory of the post-filter (A.4.2).
struct g729a_post_filter {
    int16_t synth[g729a::lp_order];                           ///< last decoder outputs
    int16_t res2[g729a::pit_max + g729a::frame_size];         ///< short-term residual
    int16_t scaled_res2[g729a::pit_max + g729a::frame_size];  ///< the same divided by 4
    int16_t mem_syn_pst[g729a::lp_order];                     ///< last outputs of the synthesis part
    int16_t mem_pre;                                          ///< last input of the tilt filter
    int16_t past_gain;                                        ///< gain control Q12
};

/// Everything that coder and decoder remember. g729a_init() makes it usable.
struct g729a_state {
    g729a_high_pass pre_process;
    g729a_coder coder;
    g729a_decoder decoder;
    g729a_post_filter post_filter;
    g729a_high_pass post_process;
};

/// Makes state a coder and decoder at rest and the one in use.
void g729a_init(g729a_state& state);

/// Codes the next 80 samples.
void g729a_encode_frame(g729a_state& state, int16_t const pcm[g729a_frame_samples], uint8_t bytes[g729a_frame_bytes]);

/// Decodes the next frame, which is taken as good whatever its parity bit says.
void g729a_decode_frame(g729a_state& state, uint8_t const bytes[g729a_frame_bytes], int16_t pcm[g729a_frame_samples]);

/// What is heard in place of the next frame, which is lost (4.4).
void g729a_conceal_frame(g729a_state& state, int16_t pcm[g729a_frame_samples]);

/// The state that the steps below, of which those functions are made, work on.
extern g729a_state* lrcodec_obj;

/// Reset of one part of a zeroed state.
void Init_Pre_Process();
void Init_Coder_ld8a();
void Init_Decod_ld8a();
void Init_Post_Filter();
void Init_Post_Process();

/// Where the 80 new samples of a frame go before Pre_Process().
int16_t* g729a_new_speech(g729a_state& state);

/// 140 Hz high pass and halving (3.1), in place.
void Pre_Process(int16_t* speech, int samples);

/// Codes one frame. The samples just added are 5 ms ahead of it: the coder looks 40 samples forward.
void Coder_ld8a(int16_t parameters[g729a_parameters]);

/// Parameters to and from the payload of RFC 3551 4.5.6: 8, 10, 8, 1, 13, 4, 7, 5, 13, 4 and 7 bits, most significant
/// bit first.
void prm2bits_ld8k(int16_t const parameters[g729a_parameters], uint8_t bytes[g729a_frame_bytes]);
void bits2prm_ld8k(uint8_t const bytes[g729a_frame_bytes], int16_t parameters[g729a_parameters]);

/// The bit that protects the six most significant bits of P1 (3.7.2): 0 or 1.
int16_t g729a_pitch_parity(int16_t p1);

/// Decodes one frame into 80 samples before the post-filter, its two LP filters and integer pitch delays.
void Decod_ld8a(int16_t const parm[g729a_parm_words], int16_t synth[g729a::frame_size],
                int16_t a_t[g729a::subframes][g729a::lp_size], int16_t t0[g729a::subframes]);

/// Post-filters 80 samples in place, with what Decod_ld8a() gave.
void Post_Filter(int16_t synth[g729a::frame_size], int16_t const a_t[g729a::subframes][g729a::lp_size],
                 int16_t const t0[g729a::subframes]);

/// 100 Hz high pass and doubling (4.2.5), in place.
void Post_Process(int16_t* synth, int samples);
