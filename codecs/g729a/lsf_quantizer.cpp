#include "codecs/g729a/lsf_quantizer.h"

#include <algorithm>
#include <cstring>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/lsf_codebooks.h"

namespace g729a {

namespace {

constexpr int half_order = lp_order / 2;
constexpr int16_t gap_coarse = 10;   // Q13, 0.0012
constexpr int16_t gap_fine = 5;      // Q13, 0.0006
constexpr int16_t gap_stable = 321;  // Q13, 0.0391
constexpr int16_t lsf_min = 40;      // Q13, 0.005
constexpr int16_t lsf_max = 25681;   // Q13, 3.135

constexpr int16_t pi_0_04 = 1029;      // Q13, 0.04 pi
constexpr int16_t pi_0_92 = 23677;     // Q13, 0.92 pi
constexpr int16_t one = 8192;          // Q13
constexpr int16_t ten = 20480;         // Q11
constexpr int16_t factor_1_2 = 19661;  // Q14, 1.2

// Puts gap between the neighbours q[from - 1] and q[from] up to q[to - 1] and q[to], moving both by half.
void rearrange(int16_t q[lp_order], int from, int to, int gap) {
    for (int j = from; j <= to; ++j) {
        int16_t const half = shr(add(sub(q[j - 1], q[j]), gap), 1);
        if (half > 0) {
            q[j - 1] = sub(q[j - 1], half);
            q[j] = add(q[j], half);
        }
    }
}

// r = what the codebooks have to give so that lsf comes out.
void lsf_residual(int16_t const lsf[lp_order], int mode, int16_t const freq_prev[lsf_memory][lp_order],
                  int16_t r[lp_order]) {
    for (int j = 0; j < lp_order; ++j) {
        int32_t sum = L_deposit_h(lsf[j]);
        for (int k = 0; k < lsf_memory; ++k)
            sum = L_msu(sum, freq_prev[k][j], fg[mode][k][j]);
        r[j] = extract_h(L_shl(L_mult(extract_h(sum), fg_sum_inv[mode][j]), 3));
    }
}

// Drops the oldest row of freq_prev and puts q in front.
void push_lsf(int16_t const q[lp_order], int16_t freq_prev[lsf_memory][lp_order]) {
    std::memmove(freq_prev[1], freq_prev[0], (lsf_memory - 1) * sizeof freq_prev[0]);
    std::memcpy(freq_prev[0], q, sizeof freq_prev[0]);
}

// Order, distance and limits that keep the synthesis filter stable. The last value can come closer than
// gap_stable to its neighbour again.
void stabilize(int16_t lsf[lp_order]) {
    for (int j = 0; j < lp_order - 1; ++j)
        if (lsf[j + 1] < lsf[j])
            std::swap(lsf[j], lsf[j + 1]);
    lsf[0] = std::max(lsf[0], lsf_min);
    for (int j = 0; j < lp_order - 1; ++j)
        if (lsf[j + 1] - lsf[j] < gap_stable)
            lsf[j + 1] = add(lsf[j], gap_stable);
    lsf[lp_order - 1] = std::min(lsf[lp_order - 1], lsf_max);
}

// w[0..9] = weights of the LSF: the closer the neighbours, the heavier. Normalised together.
void lsf_weights(int16_t const lsf[lp_order], int16_t w[lp_order]) {
    int16_t distance[lp_order];  // of the neighbours, less 1, Q13
    distance[0] = sub(lsf[1], pi_0_04 + one);
    for (int i = 1; i < lp_order - 1; ++i)
        distance[i] = sub(sub(lsf[i + 1], lsf[i - 1]), one);
    distance[lp_order - 1] = sub(pi_0_92 - one, lsf[lp_order - 2]);
    int16_t heaviest = 0;
    for (int i = 0; i < lp_order; ++i) {
        w[i] = 2048;  // Q11
        if (distance[i] <= 0) {
            int16_t const square = extract_h(L_shl(L_mult(distance[i], distance[i]), 2));
            w[i] = add(extract_h(L_shl(L_mult(square, ten), 2)), 2048);
        }
        if (i == 4 || i == 5)
            w[i] = extract_h(L_shl(L_mult(w[i], factor_1_2), 1));
        heaviest = std::max(heaviest, w[i]);
    }
    int const shift = norm_s(heaviest);
    for (int i = 0; i < lp_order; ++i)
        w[i] = shl(w[i], shift);
}

// Distances are sums of terms 0..2^30, half the clipping sum of L_mac: one that would clip there is 2^30 or
// more here and never the best, and three terms on top of a sum that is still below the best fit 32 bits.
constexpr uint32_t no_distance = 1u << 30;

// Difference of words that are known to be less than 2^15 apart; sub() clips where they are not.
constexpr int32_t close_difference(int32_t a, int32_t b) {
    return a - b;
}

template <auto difference>
uint32_t square(int32_t r, int32_t row) {
    int32_t const e = difference(r, row);
    return static_cast<uint32_t>(e * e);
}

// w is not negative, so the rounded product has the sign of e.
template <auto difference>
uint32_t weighted_square(int32_t r, int32_t row, int32_t w) {
    int32_t const e = difference(r, row);
    return static_cast<uint32_t>(((w * e) >> 15) * e);
}

// Row of the first stage nearest to r. A row is given up as soon as it is worse than the best; the middle columns,
// which tell rows apart best, come first.
template <auto difference>
int search_first(int16_t const r[lp_order]) {
    constexpr auto term = square<difference>;
    int best = 0;
    uint32_t best_distance = no_distance;
    for (int i = 0; i < lspcb1_rows; ++i) {
        int16_t const* row = lspcb1[i];
        uint32_t distance = term(r[3], row[3]) + term(r[4], row[4]);
        if (distance >= best_distance)
            continue;
        distance += term(r[5], row[5]) + term(r[6], row[6]);
        if (distance >= best_distance)
            continue;
        distance += term(r[7], row[7]) + term(r[8], row[8]) + term(r[9], row[9]);
        if (distance >= best_distance)
            continue;
        distance += term(r[0], row[0]) + term(r[1], row[1]) + term(r[2], row[2]);
        if (distance < best_distance) {
            best_distance = distance;
            best = i;
        }
    }
    return best;
}

// Row of the second stage whose columns from offset on are nearest to rest[0..4].
template <auto difference>
int search_second(int16_t const rest[half_order], int16_t const w[half_order], int offset) {
    constexpr auto term = weighted_square<difference>;
    int best = 0;
    uint32_t best_distance = no_distance;
    for (int k = 0; k < lspcb2_rows; ++k) {
        int16_t const* row = lspcb2[k] + offset;
        uint32_t distance = term(rest[0], row[0], w[0]) + term(rest[1], row[1], w[1]) + term(rest[2], row[2], w[2]);
        if (distance >= best_distance)
            continue;
        distance += term(rest[3], row[3], w[3]) + term(rest[4], row[4], w[4]);
        if (distance < best_distance) {
            best_distance = distance;
            best = k;
        }
    }
    return best;
}

int find_first(int16_t const r[lp_order]) {
    constexpr int32_t highest = 23533;  // of the first stage; the lowest is 679
    bool const close = *std::min_element(r, r + lp_order) >= -32768 + highest;
    return close ? search_first<close_difference>(r) : search_first<sub>(r);
}

// Row of one half of the second stage, from coefficient offset on, after row first of the first stage.
int find_second(int16_t const r[lp_order], int first, int16_t const w[lp_order], int offset) {
    constexpr int32_t highest = 2337;  // magnitude in the second stage
    int16_t rest[half_order];
    for (int j = 0; j < half_order; ++j)
        rest[j] = sub(r[offset + j], lspcb1[first][offset + j]);
    auto const [low, high] = std::minmax_element(rest, rest + half_order);
    bool const close = *low >= -32768 + highest && *high <= 32767 - highest;
    return close ? search_second<close_difference>(rest, w + offset, offset)
                 : search_second<sub>(rest, w + offset, offset);
}

// Weighted distance between r and what the codes give, for the choice of the predictor.
int32_t mode_distance(int16_t const r[lp_order], lsf_codes const& codes, int16_t const w[lp_order]) {
    int16_t q[lp_order];
    for (int j = 0; j < half_order; ++j)
        q[j] = add(lspcb1[codes.first][j], lspcb2[codes.low][j]);
    rearrange(q, 1, half_order - 1, gap_coarse);
    for (int j = half_order; j < lp_order; ++j)
        q[j] = add(lspcb1[codes.first][j], lspcb2[codes.high][j]);
    rearrange(q, half_order, lp_order - 1, gap_coarse);
    rearrange(q, 1, lp_order - 1, gap_fine);
    int32_t distance = 0;
    for (int j = 0; j < lp_order; ++j) {
        int16_t const e = mult(sub(q[j], r[j]), fg_sum[codes.mode][j]);
        distance = L_mac(distance, extract_h(L_shl(L_mult(w[j], e), 4)), e);
    }
    return distance;
}

}  // namespace

lsf_codes quantize_lsf(int16_t const lsf[lp_order], int16_t const freq_prev[lsf_memory][lp_order]) {
    int16_t w[lp_order];
    lsf_weights(lsf, w);
    lsf_codes codes[lsf_modes];
    int32_t distance[lsf_modes];
    for (int mode = 0; mode < lsf_modes; ++mode) {
        int16_t r[lp_order];
        lsf_residual(lsf, mode, freq_prev, r);
        int const first = find_first(r);
        codes[mode] = {mode, first, find_second(r, first, w, 0), find_second(r, first, w, half_order)};
        distance[mode] = mode_distance(r, codes[mode], w);
    }
    return codes[distance[1] < distance[0] ? 1 : 0];
}

void reconstruct_lsf(lsf_codes const& codes, int16_t freq_prev[lsf_memory][lp_order], int16_t lsf_q[lp_order]) {
    int16_t q[lp_order];
    for (int j = 0; j < lp_order; ++j)
        q[j] = add(lspcb1[codes.first][j], lspcb2[j < half_order ? codes.low : codes.high][j]);
    rearrange(q, 1, lp_order - 1, gap_coarse);
    rearrange(q, 1, lp_order - 1, gap_fine);
    for (int j = 0; j < lp_order; ++j) {
        int32_t sum = L_mult(q[j], fg_sum[codes.mode][j]);
        for (int k = 0; k < lsf_memory; ++k)
            sum = L_mac(sum, freq_prev[k][j], fg[codes.mode][k][j]);
        lsf_q[j] = extract_h(sum);
    }
    push_lsf(q, freq_prev);
    stabilize(lsf_q);
}

void repeat_lsf(int16_t const lsf[lp_order], int mode, int16_t freq_prev[lsf_memory][lp_order]) {
    int16_t q[lp_order];
    lsf_residual(lsf, mode, freq_prev, q);
    push_lsf(q, freq_prev);
}

}  // namespace g729a
