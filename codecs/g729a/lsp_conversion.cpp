#include "codecs/g729a/lsp_conversion.h"

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/lsp_tables.h"
#include "codecs/g729a/oper_32b.h"

namespace g729a {

namespace {

constexpr int half_order = lp_order / 2;

// f[0..5] (Q24) = product of 1 - 2 q z^-1 + z^-2 over the five LSP lsp[0], lsp[2], ... lsp[8].
void lsp_polynomial(int16_t const* lsp, int32_t f[half_order + 1]) {
    f[0] = 1 << 24;
    f[1] = L_msu(0, lsp[0], 512);
    for (int i = 2; i <= half_order; ++i) {
        int16_t const q = lsp[2 * (i - 1)];
        f[i] = f[i - 2];
        for (int k = i; k >= 2; --k)
            f[k] = L_sub(L_add(f[k], f[k - 2]), L_shl(Mpy_32_16(f[k - 1], q), 1));
        f[1] = L_msu(f[1], q, 512);
    }
}

// a[0..10] (Q12) = LP filter of the LSP.
void Lsp_Az(int16_t const lsp[lp_order], int16_t a[lp_order + 1]) {
    int32_t f1[half_order + 1];
    int32_t f2[half_order + 1];
    lsp_polynomial(lsp, f1);
    lsp_polynomial(lsp + 1, f2);
    for (int i = half_order; i > 0; --i) {
        f1[i] = L_add(f1[i], f1[i - 1]);
        f2[i] = L_sub(f2[i], f2[i - 1]);
    }
    a[0] = 4096;
    for (int i = 1; i <= half_order; ++i) {
        a[i] = extract_l(L_shr_r(L_add(f1[i], f2[i]), 13));
        a[lp_order + 1 - i] = extract_l(L_shr_r(L_sub(f1[i], f2[i]), 13));
    }
}

}  // namespace

void Lsp_lsf(int16_t const lsp[lp_order], int16_t lsf[lp_order]) {
    int interval = 63;
    for (int i = lp_order - 1; i >= 0; --i) {
        while (interval > 0 && table2[interval] < lsp[i])
            --interval;
        int16_t const offset = sub(lsp[i], table2[interval]);
        int32_t const fine = L_mult(slope_acos[interval], offset) >> 12;
        lsf[i] = mult(add(interval << 9, extract_l(fine)), 25736);  // Q15 of half circles to Q13 radians: pi
    }
}

void Lsf_lsp(int16_t const lsf[lp_order], int16_t lsp[lp_order]) {
    for (int i = 0; i < lp_order; ++i) {
        int16_t const frequency = mult(lsf[i], 20861);  // 1 / pi in Q16: Q15 of half circles
        int const interval = frequency >> 8 > 63 ? 63 : frequency >> 8;
        int32_t const fine = L_mult(slope_cos[interval], frequency & 255) >> 13;
        lsp[i] = add(table2[interval], extract_l(fine));
    }
}

void Int_qlpc(int16_t const lsp_old[lp_order], int16_t const lsp_new[lp_order],
              int16_t a_t[2][lp_order + 1]) {
    int16_t mean[lp_order];
    for (int i = 0; i < lp_order; ++i)
        mean[i] = static_cast<int16_t>((lsp_new[i] >> 1) + (lsp_old[i] >> 1));
    Lsp_Az(mean, a_t[0]);
    Lsp_Az(lsp_new, a_t[1]);
}

}  // namespace g729a
