#pragma once

#include <cstdint>

#include "codecs/g729a/dimensions.h"

/// LP filters to line spectral pairs and back, and line spectral pairs to and from frequencies (G.729 3.2.3 to 3.2.6,
/// A.3.2.3). LSP are Q15 cosines, descending; LSF are Q13 radians, ascending; filters are Q12.
namespace g729a {

/// LSP that coder and decoder start from (initial values of the fixed-point software).
inline constexpr int16_t lsp_init[lp_order] = {30000, 26000, 21000, 15000, 8000, 0, -8000, -15000, -21000, -26000};

/// lsp = LSP of a. When fewer than ten are found, lsp = old_lsp.
void Az_lsp(int16_t const a[lp_size], int16_t lsp[lp_order], int16_t const old_lsp[lp_order]);

void Lsp_lsf(int16_t const lsp[lp_order], int16_t lsf[lp_order]);
void Lsf_lsp(int16_t const lsf[lp_order], int16_t lsp[lp_order]);

/// a_t[0] = LP filter of the mean of old and new LSP (first subframe), a_t[1] = of the new ones.
void Int_qlpc(int16_t const lsp_old[lp_order], int16_t const lsp_new[lp_order], int16_t a_t[subframes][lp_size]);

}  // namespace g729a
