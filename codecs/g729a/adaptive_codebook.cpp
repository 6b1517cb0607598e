#include "codecs/g729a/adaptive_codebook.h"

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/tables.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int half_taps = 10;
constexpr int padded_taps = 24;  // with zeros behind, for the sake of vector instructions

// Q15 coefficients of one third in the order of the samples, the latest last.
void select_phase(int phase, int16_t c[padded_taps]) {
    for (int i = 0; i < half_taps; ++i) {
        c[half_taps - 1 - i] = inter_3l[phase + 3 * i];
        c[half_taps + i] = inter_3l[3 - phase + 3 * i];
    }
}

// The same sum with clipping after every product, which goes from the middle outwards.
int32_t clipping_sum(int16_t const* x, int16_t const c[padded_taps]) {
    int32_t sum = 0;
    for (int i = 0; i < half_taps; ++i) {
        sum = L_mac(sum, x[half_taps - 1 - i], c[half_taps - 1 - i]);
        sum = L_mac(sum, x[half_taps + i], c[half_taps + i]);
    }
    return sum;
}

}  // namespace

void Pred_lt_3(int16_t* exc, int t0, int frac) {
    int const phase = frac > 0 ? 3 - frac : -frac;
    int16_t c[padded_taps] = {};
    select_phase(phase, c);
    int16_t const* x = exc - t0 - (frac > 0 ? 1 : 0) - (half_taps - 1);

    // Magnitudes of a phase's coefficients add up to less than 2^16: sums fit while the samples are within
    // limit.
    constexpr int32_t limit = 16383;
    bool fits = peak<subframe_size + padded_taps>(x) <= limit;
    for (int n = 0; n < subframe_size; ++n) {
        int32_t const sum = fits ? 2 * dot<padded_taps>(x + n, c) : clipping_sum(x + n, c);
        exc[n] = round(sum);
        fits = fits && exc[n] <= limit && exc[n] >= -limit;
    }
}

}  // namespace g729a
