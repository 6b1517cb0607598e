#pragma once

#include <cstdint>

// LP filter to line spectral pairs (G.729 3.2.3, A.3.2.3).

namespace g729a {

// lsp[0..9] = LSP of a[0..10] (Q12), Q15 cosines, descending. When fewer than ten are found, lsp = old_lsp.
void Az_lsp(int16_t const a[11], int16_t lsp[10], int16_t const old_lsp[10]);

}  // namespace g729a
