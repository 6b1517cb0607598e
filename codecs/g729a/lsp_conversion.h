#pragma once

#include <cstdint>

// Line spectral pairs to and from line spectral frequencies and to LP filters (G.729 3.2.4, 3.2.5, 3.2.6).

namespace g729a {

// lsf[0..9] (Q13 radians) of lsp[0..9] (Q15 cosines, descending).
void Lsp_lsf(int16_t const lsp[10], int16_t lsf[10]);

// lsp[0..9] (Q15 cosines) of lsf[0..9] (Q13 radians).
void Lsf_lsp(int16_t const lsf[10], int16_t lsp[10]);

// a_t[0] = LP filter of the mean of old and new LSP (first subframe), a_t[1] = of the new ones; Q12.
void Int_qlpc(int16_t const lsp_old[10], int16_t const lsp_new[10], int16_t a_t[2][11]);

}  // namespace g729a
