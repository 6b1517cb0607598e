#include "codecs/g729a/lsp_predictor.h"

#include <algorithm>
#include <cstring>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/lsp_tables.h"

namespace g729a {

namespace {

constexpr int16_t gap_coarse = 10;   // Q13, 0.0012
constexpr int16_t gap_fine = 5;      // Q13, 0.0006
constexpr int16_t gap_stable = 321;  // Q13, 0.0391
constexpr int16_t lsf_min = 40;      // Q13, 0.005
constexpr int16_t lsf_max = 25681;   // Q13, 3.135

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

}  // namespace

void rearrange(int16_t q[lp_order], int from, int to, int gap) {
    for (int j = from; j <= to; ++j) {
        int16_t const half = shr(add(sub(q[j - 1], q[j]), gap), 1);
        if (half > 0) {
            q[j - 1] = sub(q[j - 1], half);
            q[j] = add(q[j], half);
        }
    }
}

void lsf_residual(int16_t const lsf[lp_order], int mode, int16_t const freq_prev[4][lp_order],
                  int16_t r[lp_order]) {
    for (int j = 0; j < lp_order; ++j) {
        int32_t sum = L_deposit_h(lsf[j]);
        for (int k = 0; k < 4; ++k)
            sum = L_msu(sum, freq_prev[k][j], fg[mode][k][j]);
        r[j] = extract_h(L_shl(L_mult(extract_h(sum), fg_sum_inv[mode][j]), 3));
    }
}

void push_lsf(int16_t const q[lp_order], int16_t freq_prev[4][lp_order]) {
    std::memmove(freq_prev[1], freq_prev[0], 3 * sizeof freq_prev[0]);
    std::memcpy(freq_prev[0], q, sizeof freq_prev[0]);
}

void reconstruct_lsf(lsf_codes const& codes, int16_t freq_prev[4][lp_order], int16_t lsf_q[lp_order]) {
    int16_t q[lp_order];
    for (int j = 0; j < lp_order; ++j)
        q[j] = add(lspcb1[codes.first][j], lspcb2[j < lp_order / 2 ? codes.low : codes.high][j]);
    rearrange(q, 1, lp_order - 1, gap_coarse);
    rearrange(q, 1, lp_order - 1, gap_fine);
    for (int j = 0; j < lp_order; ++j) {
        int32_t sum = L_mult(q[j], fg_sum[codes.mode][j]);
        for (int k = 0; k < 4; ++k)
            sum = L_mac(sum, freq_prev[k][j], fg[codes.mode][k][j]);
        lsf_q[j] = extract_h(sum);
    }
    push_lsf(q, freq_prev);
    stabilize(lsf_q);
}

}  // namespace g729a
