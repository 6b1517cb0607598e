#pragma once

#include <cstdint>

// Constant tables of pitch, gains, high-pass filters and of the functions by table. The integers are those of
// ITU-T G.729 Annex A and are not recomputed from their formulas: the last place of each is part of the
// bit-exact result.

namespace g729a {

// interpolation filter b30 of the adaptive codebook, resolution 1/3, Q15 (G.729 3.7.1)
extern int16_t const inter_3l[31];
// MA predictor of the gain, newest first, Q13 (G.729 3.9.1)
extern int16_t const pred[4];
// gain codebook GA, internal order; column 0 pitch gain Q14, column 1 code correction Q13 (G.729 3.9.2)
extern int16_t const gbk1[8][2];
// gain codebook GB, internal order; columns as gbk1 (G.729 3.9.2)
extern int16_t const gbk2[16][2];
// internal GA index to transmitted index (G.729 3.9.3)
extern int16_t const map1[8];
// internal GB index to transmitted index (G.729 3.9.3)
extern int16_t const map2[16];
// transmitted GA index to internal index (G.729 3.9.3)
extern int16_t const imap1[8];
// transmitted GB index to internal index (G.729 3.9.3)
extern int16_t const imap2[16];
// preselection thresholds of GA, Q14 (G.729 3.9.2)
extern int16_t const thr1[4];
// preselection thresholds of GB, Q15 (G.729 3.9.2)
extern int16_t const thr2[8];
// numerator of the 140 Hz high pass, halved, Q12 (G.729 3.1)
extern int16_t const b140[3];
// denominator of the 140 Hz high pass, sign of a[1], a[2] reversed, Q12 (G.729 3.1)
extern int16_t const a140[3];
// numerator of the 100 Hz high pass, Q13 (G.729 4.2.5)
extern int16_t const b100[3];
// denominator of the 100 Hz high pass, sign of a[1], a[2] reversed, Q13 (G.729 4.2.5)
extern int16_t const a100[3];
// 2^(i / 32), last one clipped, Q14 (function Pow2)
extern int16_t const tabpow[33];
// log2(1 + i / 32), last one clipped, Q15 (function Log2)
extern int16_t const tablog[33];
// 1 / sqrt(x) / 2 on x = 1/4..1 in steps of 1/64, Q15 (function Inv_sqrt)
extern int16_t const tabsqr[49];

}  // namespace g729a
