#include <algorithm>
#include <cstring>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/dspfunc.h"
#include "codecs/g729a/g729a.h"
#include "codecs/g729a/lp_filter.h"
#include "codecs/g729a/vector_sum.h"

// The post-filter of Annex A (G.729 A.4.2): long-term part, tilt compensation, short-term part, gain control.

namespace {

using namespace g729a;

constexpr int16_t gamma_numerator = 18022;    // Q15, 0.55 (A.4.2.2)
constexpr int16_t gamma_denominator = 22938;  // Q15, 0.70 (A.4.2.2)
constexpr int16_t tilt_factor = 26214;        // Q15, 0.8 (A.4.2.3)
constexpr int16_t gamma_long_term = 16384;    // Q15, 0.5 (A.4.2.1)
constexpr int16_t full_direct = 21845;        // Q15, 1 / (1 + 0.5)
constexpr int16_t full_delayed = 10923;       // Q15, 0.5 / (1 + 0.5)
constexpr int response_size = 22;             // samples of the impulse response that the tilt is taken from
constexpr int delays = 7;                     // tried around the transmitted one
constexpr int16_t gain_at_rest = 4096;        // Q12, 1.0 (A.4.2.4)
constexpr int16_t keep = 29491;               // Q15, 0.9, of the gain from sample to sample (A.4.2.4)
constexpr int16_t renew = 3276;               // Q15, 0.1

// Sums over the scaled residual of a subframe: with the delay that fits best, and the energies of both ends.
struct long_term_sums {
    int delay;
    int32_t correlation;
    int32_t delayed_energy;
    int32_t energy;
};

// Finds the delay among t0 - 3 .. t0 + 3 that fits sc[0..39] best.
long_term_sums search_delay(int16_t const* sc, int t0) {
    int const last = std::min(t0 + delays / 2, pit_max);
    int const first = last - delays + 1;
    constexpr int32_t limit = 5181;  // 1 + 2 * 40 limit^2 < 2^31
    bool const fits = within<subframe_size>(sc, limit) && within<subframe_size + delays - 1>(sc - last, limit);
    auto const sum = [&](int32_t start, int16_t const* x, int16_t const* y) {
        return fits ? start + 2 * dot<subframe_size>(x, y) : L_mac_sum(start, x, y, subframe_size);
    };
    long_term_sums best = {first, min_32, 0, sum(1, sc, sc)};
    for (int delay = first; delay <= last; ++delay) {
        int32_t const correlation = sum(0, sc, sc - delay);
        if (correlation > best.correlation) {
            best.correlation = correlation;
            best.delay = delay;
        }
    }
    best.correlation = std::max(best.correlation, 0);
    best.delayed_energy = sum(1, sc - best.delay, sc - best.delay);
    return best;
}

// Gains Q15 of the residual and of its delayed copy (A.4.2.1). Nothing delayed when the prediction gain is
// below 3 dB.
struct long_term_gains {
    int16_t direct;
    int16_t delayed;
    bool active;
};

long_term_gains choose_gains(long_term_sums const& sums) {
    int const shift = norm_l(std::max({sums.correlation, sums.delayed_energy, sums.energy}));
    int16_t const correlation = round(sums.correlation << shift);
    int16_t const delayed_energy = round(sums.delayed_energy << shift);
    int16_t const energy = round(sums.energy << shift);
    if (2 * correlation * correlation < delayed_energy * energy)
        return {0, 0, false};
    if (correlation > delayed_energy)
        return {full_direct, full_delayed, true};
    int16_t const numerator = shr(mult(correlation, gamma_long_term), 1);
    int16_t const denominator = add(numerator, delayed_energy >> 1);
    if (denominator <= 0)
        return {32767, 0, true};
    int16_t const delayed = div_s(numerator, denominator);
    return {sub(32767, delayed), delayed, true};
}

// r[0..39] = the residual through the long-term filter. sc is the residual divided by 4.
void filter_long_term(int16_t const* residual, int16_t const* sc, int t0, int16_t r[subframe_size]) {
    long_term_sums const sums = search_delay(sc, t0);
    long_term_gains const gains = choose_gains(sums);
    if (!gains.active) {
        std::memcpy(r, residual, subframe_size * sizeof *r);
        return;
    }
    int16_t const* delayed = residual - sums.delay;
    for (int i = 0; i < subframe_size; ++i)
        r[i] = add(mult(gains.direct, residual[i]), mult(gains.delayed, delayed[i]));
}

// Factor (Q15) of the tilt filter: 0.8 of the first reflection coefficient of A(z/0.55) / A(z/0.7) where that
// falls towards high frequencies, else 0 (A.4.2.3).
int16_t tilt_of(int16_t const numerator[lp_size], int16_t const denominator[lp_size]) {
    constexpr int16_t at_rest[lp_order] = {};
    int16_t h[3 * lp_order] = {};  // Syn_filt() makes ten at a time
    std::memcpy(h, numerator, lp_size * sizeof *h);
    Syn_filt(denominator, h, h, 3 * lp_order, at_rest);
    int64_t const power = 2 * energy<response_size>(h);
    bool const fits = power <= max_32;  // no partial sum of r1 is larger (Cauchy-Schwarz)
    int16_t const r0 = extract_h(fits ? static_cast<int32_t>(power) : max_32);
    int16_t const r1 =
        extract_h(fits ? 2 * dot<response_size - 1>(h, h + 1) : L_mac_sum(0, h, h + 1, response_size - 1));
    return r1 <= 0 ? int16_t{0} : div_s(mult(r1, tilt_factor), r0);
}

// r[i] -= tilt r[i - 1], after mem = the sample before; mem becomes the last one.
void compensate_tilt(int16_t r[subframe_size], int16_t tilt, int16_t& mem) {
    int16_t const last = r[subframe_size - 1];
    for (int i = subframe_size - 1; i > 0; --i)
        r[i] = sub(r[i], mult(tilt, r[i - 1]));
    r[0] = sub(r[0], mult(tilt, mem));
    mem = last;
}

// Energy of x / 4, clipped.
int32_t scaled_energy(int16_t const x[subframe_size]) {
    uint32_t sum = 0;  // at most 40 * 2^26
#pragma GCC unroll 8   // as in vector_sum.h
    for (int i = 0; i < subframe_size; ++i)
        sum += static_cast<uint32_t>((x[i] >> 2) * (x[i] >> 2));
    return sum > max_32 / 2 ? max_32 : static_cast<int32_t>(2 * sum);
}

// 0.1 of the root of the ratio of two energies, Q12.
int16_t renewed_part(int32_t in_energy, int32_t out_energy) {
    if (in_energy == 0)
        return 0;
    int const out_shift = norm_l(out_energy) - 1;  // one bit less keeps the mantissa below the other
    int const in_shift = norm_l(in_energy);
    int16_t const ratio = div_s(round(L_shl(out_energy, out_shift)), round(L_shl(in_energy, in_shift)));
    int32_t const root = Inv_sqrt(L_shr(L_shl(ratio, 7), out_shift - in_shift));
    return mult(round(L_shl(root, 9)), renew);
}

// Brings out to the level of in, the gain (Q12) sliding on from sample to sample (A.4.2.4). An output that is next to
// silence stays as it is and sets the gain to 0.
void control_gain(int16_t const in[subframe_size], int16_t out[subframe_size], int16_t& gain) {
    int32_t const out_energy = scaled_energy(out);
    if (out_energy == 0) {
        gain = 0;
        return;
    }
    int16_t const part = renewed_part(scaled_energy(in), out_energy);
    for (int i = 0; i < subframe_size; ++i) {
        gain = add(mult(gain, keep), part);
        out[i] = sat16((out[i] * gain) >> 12);
    }
}

// Filters synth[0..39], with ten samples of past, into out[0..39]; res2 and sc are this subframe's place in
// the residual and its scaled copy.
void filter_subframe(g729a_post_filter& state, int16_t const* synth, int16_t const a[lp_size], int t0, int16_t* res2,
                     int16_t* sc, int16_t* out) {
    int16_t numerator[lp_size];
    int16_t denominator[lp_size];
    Weight_Az(a, gamma_numerator, numerator);
    Weight_Az(a, gamma_denominator, denominator);
    Residu(numerator, synth, res2);
    for (int i = 0; i < subframe_size; ++i)
        sc[i] = static_cast<int16_t>(res2[i] >> 2);

    int16_t r[subframe_size];
    filter_long_term(res2, sc, t0, r);
    compensate_tilt(r, tilt_of(numerator, denominator), state.mem_pre);
    Syn_filt(denominator, r, out, subframe_size, state.mem_syn_pst);
    update_memory(out, subframe_size, state.mem_syn_pst);
    control_gain(synth, out, state.past_gain);
}

}  // namespace

void Init_Post_Filter() {
    lrcodec_obj->post_filter = {};
    lrcodec_obj->post_filter.past_gain = gain_at_rest;
}

void Post_Filter(int16_t synth[frame_size], int16_t const a_t[subframes][lp_size], int16_t const t0[subframes]) {
    g729a_post_filter& state = lrcodec_obj->post_filter;
    int16_t unfiltered[lp_order + frame_size];
    std::memcpy(unfiltered, state.synth, sizeof state.synth);
    std::memcpy(unfiltered + lp_order, synth, frame_size * sizeof *synth);
    for (int k = 0; k < subframes; ++k) {
        int const start = k * subframe_size;
        filter_subframe(state, unfiltered + lp_order + start, a_t[k], t0[k], state.res2 + pit_max + start,
                        state.scaled_res2 + pit_max + start, synth + start);
    }
    std::memcpy(state.synth, unfiltered + frame_size, sizeof state.synth);
    std::memmove(state.res2, state.res2 + frame_size, pit_max * sizeof *state.res2);
    std::memmove(state.scaled_res2, state.scaled_res2 + frame_size, pit_max * sizeof *state.scaled_res2);
}
