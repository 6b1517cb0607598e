#include "codecs/g729a/algebraic_codebook.h"

#include <algorithm>

#include "codecs/g729a/adaptive_codebook.h"
#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// What the search looks at: correlation of the target with a pulse at each position, and of the filtered
// pulses with each other, all with the signs of the pulses worked in.
struct correlations {
    int16_t dn[subframe_size];                  // magnitude, at most 8192
    int16_t sign[subframe_size];                // 32767 or -32768
    int16_t own[subframe_size];                 // a filtered pulse with itself
    int16_t phi[subframe_size][subframe_size];  // symmetric; not filled for two positions of one track
};

// Accumulation, the upper half of twice the sum, and product with a sign (Q15): for sums of which no double is 2^31 -
// 2^16 or more, and with clipping of the doubles.
struct plain_arithmetic {
    static int32_t accumulate(int32_t sum, int32_t a, int32_t b) { return sum + a * b; }
    static int32_t upper(int32_t sum) { return sum >> 15; }
    static int32_t with_sign(int32_t value, int32_t sign) { return (value * sign) >> 15; }
};
struct clipping_arithmetic {
    static int32_t accumulate(int32_t sum, int32_t a, int32_t b) { return L_mac(sum, a, b); }
    static int32_t upper(int32_t sum) { return sum >> 16; }
    static int32_t with_sign(int32_t value, int32_t sign) { return mult(value, sign); }
};

// What a diagonal of phi takes from one of its positions.
struct pulse_position {
    int32_t h;
    int32_t sign;     // 32767 or -32768
    int32_t inverse;  // 0 or -1, exclusive-or with it changes a sign
};

// Fills own and phi; each of its diagonals is one running sum. Off the main diagonal it is multiplied by both signs.
template <class arithmetic>
void fill_phi(int16_t const h[subframe_size], correlations& c) {
    constexpr int last = subframe_size - 1;
    pulse_position p[subframe_size];  // from the last position of the subframe on, h from the first
    int32_t sum = 0;
    for (int n = 0; n <= last; ++n) {
        int const at = last - n;
        p[n] = {h[n], c.sign[at], c.sign[at] >> 15};
        sum = arithmetic::accumulate(sum, h[n], h[n]);
        c.own[at] = static_cast<int16_t>(arithmetic::upper(sum));
    }
    for (int distance = 1; distance < subframe_size; ++distance) {
        if (distance % track_step == 0)
            continue;
        sum = 0;
        pulse_position const* q = p + distance;
        int16_t* above = &c.phi[last - distance][last];
        int16_t* below = &c.phi[last][last - distance];
#pragma GCC unroll 4  // five pointers and counters move at each turn
        for (int n = 0; n <= last - distance; ++n) {
            sum = arithmetic::accumulate(sum, p[n].h, q[n].h);
            int32_t const value = arithmetic::with_sign(arithmetic::upper(sum), p[n].sign ^ q[n].inverse);
            *above = static_cast<int16_t>(value);
            *below = static_cast<int16_t>(value);
            above -= subframe_size + 1;
            below -= subframe_size + 1;
        }
    }
}

// Correlations of the impulse response, brought to 14..16 bits at position 39 (3.8.1).
void correlate_response(int16_t const h[subframe_size], correlations& c) {
    int64_t const power = std::min<int64_t>(2 * energy<subframe_size>(h), max_32);
    int32_t const sum = static_cast<int32_t>(power);
    int const shift = extract_h(sum) > 32000 ? -1 : norm_l(sum) >> 1;
    int16_t scaled[subframe_size];
    for (int i = 0; i < subframe_size; ++i)  // cannot clip: twice the square of a scaled word is still below 2^31
        scaled[i] = static_cast<int16_t>((h[i] * (1 << (shift + 1))) >> 1);
    // No sum is larger than the energy (Cauchy-Schwarz).
    if (2 * energy<subframe_size>(scaled) < max_32 - 0xffff)
        fill_phi<plain_arithmetic>(scaled, c);
    else
        fill_phi<clipping_arithmetic>(scaled, c);
}

// Correlations of the target; takes the signs out of dn.
void correlate_target(int16_t const xn2[subframe_size], int16_t const h[subframe_size], correlations& c) {
    backward_filter(xn2, h, c.dn);
    for (int i = 0; i < subframe_size; ++i) {
        int32_t const inverse = c.dn[i] >> 15;  // 0 or -1
        c.sign[i] = static_cast<int16_t>(inverse ^ 32767);
        c.dn[i] = static_cast<int16_t>((c.dn[i] ^ inverse) - inverse);
    }
}

// Squared correlation (Q15) over energy of a choice of pulses, compared without division.
struct merit {
    int32_t square = -1;
    int32_t energy = 1;

    bool loses_to(int32_t other_square, int32_t other_energy) const {
        return energy * other_square > square * other_energy;
    }
};

// Two pulses and their merit; correlation is the sum of their dn.
struct pulse_pair {
    merit value;
    int first = 0;
    int second = 0;
    int32_t correlation = 0;
};

// All energies below are sums of phi with weights that add up to at most 1: with |phi| <= 2^15 they stay
// within 32 bits, rounding included.

// The position of a track with the largest dn, other than excluded.
int strongest(int16_t const dn[subframe_size], int track, int excluded) {
    int best = track;
    int32_t highest = -1;
    for (int i = track; i < subframe_size; i += track_step) {
        if (i != excluded && dn[i] > highest) {
            highest = dn[i];
            best = i;
        }
    }
    return best;
}

// Best pair of one of the two strongest positions of first_track and any of second_track. Energy is 1/4 of
// the pair's.
pulse_pair search_first_pair(correlations const& c, int first_track, int second_track) {
    pulse_pair best;
    int excluded = -1;
    for (int round = 0; round < 2; ++round) {
        int const p = strongest(c.dn, first_track, excluded);
        excluded = p;
        int32_t const first_energy = c.own[p] * 0x4000;
        for (int q = second_track; q < subframe_size; q += track_step) {
            int32_t const correlation = c.dn[p] + c.dn[q];
            int32_t const square = (correlation * correlation) >> 15;
            int32_t const sum = first_energy + c.phi[p][q] * 0x8000 + c.own[q] * 0x4000;
            int32_t const energy = (sum + 0x8000) >> 16;
            if (best.value.loses_to(square, energy))
                best = {{square, energy}, p, q, correlation};
        }
    }
    return best;
}

// What the second pulse of a pair adds to correlation and energy wherever the first is.
struct second_pulse {
    int32_t correlation;
    int32_t energy;
};

// Best pair of first_track and second_track beside the fixed pair. Energy is 1/16 of all four pulses'.
pulse_pair search_second_pair(correlations const& c, pulse_pair const& fixed, int first_track, int second_track) {
    int16_t const* with_p = c.phi[fixed.first];
    int16_t const* with_q = c.phi[fixed.second];
    second_pulse second[positions_per_track];
    for (int k = 0; k < positions_per_track; ++k) {
        int const v = second_track + k * track_step;
        int32_t const sum = with_p[v] * 0x4000 + with_q[v] * 0x4000 + c.own[v] * 0x2000;
        second[k] = {c.dn[v], ((sum + 0x8000) >> 16) * 0x8000};
    }
    merit best;
    int best_u = 0, best_v = 0;
    for (int u = first_track; u < subframe_size; u += track_step) {
        int32_t const first_correlation = fixed.correlation + c.dn[u];
        int32_t const first_energy =
            fixed.value.energy * 0x4000 + with_p[u] * 0x2000 + with_q[u] * 0x2000 + c.own[u] * 0x1000 + 0x8000;
        int16_t const* with_u = c.phi[u] + second_track;
#pragma GCC unroll 8  // spares a quarter of the 512 turns that a frame takes
        for (int k = 0; k < positions_per_track; ++k) {
            int32_t const correlation = std::min(first_correlation + second[k].correlation, 32767);
            int32_t const square = (correlation * correlation) >> 15;
            int32_t const energy = (first_energy + with_u[k * track_step] * 0x2000 + second[k].energy) >> 16;
            if (best.loses_to(square, energy)) {
                best = {square, energy};
                best_u = u;
                best_v = second_track + k * track_step;
            }
        }
    }
    return {best, best_u, best_v, 0};
}

// The tracks of one depth-first search, and which pulse of the codeword each of the four found becomes.
struct search_order {
    int track[pulses];
    int pulse[pulses];
};

constexpr search_order orders[] = {
    {{2, 3, 0, 1}, {2, 3, 0, 1}},
    {{3, 0, 1, 2}, {3, 0, 1, 2}},
    {{2, 4, 0, 1}, {2, 3, 0, 1}},
    {{4, 0, 1, 2}, {3, 0, 1, 2}},
};

void search_pulses(correlations const& c, int position[pulses]) {
    merit best;
    for (int k = 0; k < pulses; ++k)
        position[k] = k;
    for (search_order const& order : orders) {
        pulse_pair const outer = search_first_pair(c, order.track[0], order.track[1]);
        pulse_pair const inner = search_second_pair(c, outer, order.track[2], order.track[3]);
        if (!best.loses_to(inner.value.square, inner.value.energy))
            continue;
        best = inner.value;
        position[order.pulse[0]] = outer.first;
        position[order.pulse[1]] = outer.second;
        position[order.pulse[2]] = inner.first;
        position[order.pulse[3]] = inner.second;
    }
}

// The codeword of four pulses on their tracks (3.8.2).
algebraic_code encode_pulses(int const position[pulses], bool const positive[pulses]) {
    int const fourth = position[3] / track_step * 2 + position[3] % track_step - 3;
    int const positions =
        position[0] / track_step | position[1] / track_step << 3 | position[2] / track_step << 6 | fourth << 9;
    int signs = 0;
    for (int k = 0; k < pulses; ++k)
        signs |= positive[k] << k;
    return {static_cast<int16_t>(positions), static_cast<int16_t>(signs)};
}

// y[p..39] +- h, clipped.
void add_response(int16_t const h[subframe_size], int p, bool positive, int16_t y[subframe_size]) {
    for (int i = p; i < subframe_size; ++i)
        y[i] = positive ? add(y[i], h[i - p]) : sub(y[i], h[i - p]);
}

}  // namespace

algebraic_code ACELP_Code_A(int16_t const xn2[subframe_size], int16_t h[subframe_size], int t0, int16_t sharp,
                            int16_t code[subframe_size], int16_t y2[subframe_size]) {
    sharpen(h, t0, sharp);
    correlations c;
    correlate_target(xn2, h, c);
    correlate_response(h, c);
    int position[pulses];
    search_pulses(c, position);

    std::fill_n(y2, subframe_size, int16_t{0});
    bool positive[pulses];
    for (int k = 0; k < pulses; ++k) {
        positive[k] = c.sign[position[k]] > 0;
        add_response(h, position[k], positive[k], y2);
    }
    algebraic_code const result = encode_pulses(position, positive);
    Decod_ACELP(result, code);
    sharpen(code, t0, sharp);
    return result;
}

void Decod_ACELP(algebraic_code transmitted, int16_t code[subframe_size]) {
    int const c = transmitted.positions;
    int const position[pulses] = {
        (c & 7) * track_step,
        ((c >> 3) & 7) * track_step + 1,
        ((c >> 6) & 7) * track_step + 2,
        ((c >> 10) & 7) * track_step + 3 + ((c >> 9) & 1),
    };
    std::fill_n(code, subframe_size, int16_t{0});
    for (int k = 0; k < pulses; ++k)
        code[position[k]] = (transmitted.signs >> k) & 1 ? 8191 : -8192;
}

void sharpen(int16_t x[subframe_size], int t0, int16_t sharp) {
    int16_t const factor = shl(sharp, 1);  // Q15
    for (int i = t0; i < subframe_size; ++i)
        x[i] = add(x[i], mult(x[i - t0], factor));
}

int16_t next_sharp(int16_t gain_pit) {
    return std::clamp(gain_pit, sharp_min, sharp_max);
}

}  // namespace g729a
