#include <gtest/gtest.h>

#include <algorithm>

#include "codecs/g729a/algebraic_search.h"
#include "codecs/g729a/az_lsp.h"
#include "codecs/g729a/g729a.h"
#include "codecs/g729a/lsp_conversion.h"
#include "codecs/g729a/lsp_quantizer.h"
#include "codecs/g729a/open_loop_pitch.h"
#include "tests/codecs/g729a/signals.h"

// The searches of the encoder on inputs that no speech brings about, where sums clip. The digests were taken
// from a second build of the coder that clips after every single operation; that build reproduces the ITU-T's
// vectors.

namespace {

using namespace g729a;
using g729a_test::digest;
using g729a_test::random_source;

// Ten LSF (Q13) in order, crowded at either end or spread.
void crowded_lsf(random_source& random, int16_t lsf[10]) {
    const int32_t low = random.between(0, 1) == 0 ? 0 : random.between(0, 20000);
    const int32_t high = random.between(low + 400, 25681);
    for (int j = 0; j < 10; ++j)
        lsf[j] = static_cast<int16_t>(random.between(low, high));
    std::sort(lsf, lsf + 10);
}

// Full scale noise of one of many levels in steps of stride, next to nothing in between.
template <int n>
void gappy_noise(random_source& random, int16_t (&x)[n], int stride) {
    const int32_t amplitude = 1 << random.between(4, 15);
    const int32_t constant = random.between(0, 3) == 0 ? amplitude - 1 : 0;
    for (int i = 0; i < n; ++i) {
        const int32_t loud = constant != 0 ? constant : random.between(-amplitude, amplitude - 1);
        x[i] = static_cast<int16_t>(i % stride == 1 ? loud : random.between(-3, 3));
    }
}

TEST(G729aSearch, RootsOfCrowdedSpectra) {
    random_source random(21);
    digest sum;
    int16_t lsp[10], old_lsp[10] = {};
    for (int i = 0; i < 5000; ++i) {
        int16_t lsf[10], a_t[2][11];
        crowded_lsf(random, lsf);
        Lsf_lsp(lsf, lsp);
        Int_qlpc(lsp, lsp, a_t);
        Az_lsp(a_t[1], lsp, old_lsp);
        for (int16_t value : lsp)
            sum.add(value);
    }
    EXPECT_EQ(sum.value(), 3813101817494818732u);
}

TEST(G729aSearch, SpectraFarFromThePrediction) {
    random_source random(22);
    digest sum;
    for (int i = 0; i < 5000; ++i) {
        int16_t lsf[10], freq_prev[4][10];
        crowded_lsf(random, lsf);
        for (auto& row : freq_prev)
            crowded_lsf(random, row);
        const lsf_codes codes = quantize_lsf(lsf, freq_prev);
        for (int code : {codes.mode, codes.first, codes.low, codes.high})
            sum.add(static_cast<int16_t>(code));
    }
    EXPECT_EQ(sum.value(), 13245290608586932346u);
}

TEST(G729aSearch, OpenLoopPitchOfEverySecondSample) {
    random_source random(23);
    digest sum;
    for (int i = 0; i < 5000; ++i) {
        int16_t wsp[143 + 80];
        gappy_noise(random, wsp, random.between(2, 4));
        sum.add(static_cast<int16_t>(Pitch_ol_fast(wsp + 143)));
    }
    EXPECT_EQ(sum.value(), 17702795554309738132u);
}

TEST(G729aSearch, PulsesThroughLoudResponses) {
    random_source random(24);
    digest sum;
    for (int i = 0; i < 5000; ++i) {
        int16_t xn2[41], h[41], code[40], y2[40];
        gappy_noise(random, xn2, random.between(2, 6));
        gappy_noise(random, h, random.between(2, 40));
        const int t0 = random.between(19, 60);
        const auto sharp = static_cast<int16_t>(random.between(3277, 13017));
        const auto found = ACELP_Code_A(xn2 + 1, h + 1, t0, sharp, code, y2);
        sum.add(found.positions);
        sum.add(found.signs);
        for (int k = 0; k < 40; ++k) {
            sum.add(code[k]);
            sum.add(y2[k]);
        }
    }
    EXPECT_EQ(sum.value(), 5526399449207124065u);
}

TEST(G729aSearch, HighPassOfSquares) {
    random_source random(25);
    digest sum;
    g729a_state state;
    g729a_init(state);
    for (int i = 0; i < 500; ++i) {
        int16_t x[80], y[80];
        for (int k = 0; k < 80; ++k)
            x[k] = y[k] = random.between(0, i % 3) == 0 ? int16_t{-32768} : int16_t{32767};
        Pre_Process(x, 80);
        Post_Process(y, 80);
        for (int k = 0; k < 80; ++k) {
            sum.add(x[k]);
            sum.add(y[k]);
        }
    }
    EXPECT_EQ(sum.value(), 4567550902903067657u);
}

}  // namespace
