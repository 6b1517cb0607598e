#include "codecs/g729a/open_loop_pitch.h"

#include <cstdlib>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/dspfunc.h"
#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

constexpr int taps = 40;  // even samples of a frame
constexpr int past = 72;  // even or odd samples of the longest delay

// The weighted speech, scaled and split into even and odd samples: z[i] is even[i / 2] or odd[(i - 1) / 2],
// index past in the array being sample 0 or 1.
struct split_speech {
    int16_t even[past + taps];
    int16_t odd[past + taps];
    bool fits;  // no sum of products over taps samples can clip

    // z[0 - delay], z[2 - delay], ...
    int16_t const* delayed(int delay) const { return (delay & 1 ? odd : even) + past - ((delay + 1) >> 1); }

    // start + 2 sum z[j] z[j - delay] over even j, of the delayed samples with themselves when power is set.
    int32_t correlate(int32_t start, int delay, bool power) const {
        int16_t const* y = delayed(delay);
        int16_t const* x = power ? y : even + past;
        return fits ? start + 2 * dot<taps>(x, y) : L_mac_sum(start, x, y, taps);
    }
};

// Splits wsp[-143..79] and scales it so that the energy of the odd samples is neither too large nor small.
void split(int16_t const* wsp, split_speech& z) {
    z.even[0] = 0;  // sample -144 belongs to no delay
    for (int i = 0; i < past + taps; ++i)
        z.odd[i] = wsp[2 * (i - past) + 1];
    for (int i = 1; i < past + taps; ++i)
        z.even[i] = wsp[2 * (i - past)];
    int64_t const odd_energy = 2 * energy<past + taps>(z.odd);
    int64_t const even_energy = 2 * energy<past + taps>(z.even);
    int const shift = odd_energy > max_32 ? -3 : odd_energy < 1048576 ? 3 : 0;
    // By Cauchy-Schwarz a sum is at most the larger energy. Scaled down, |z| <= 4096: 40 * 2 * 2^24 < 2^31.
    z.fits = shift < 0 || (even_energy << (2 * shift)) <= max_32;
    if (shift == 0)
        return;
    for (int i = 0; i < past + taps; ++i) {
        z.even[i] = shl(z.even[i], shift);
        z.odd[i] = shl(z.odd[i], shift);
    }
}

struct candidate {
    int delay;
    int32_t correlation;
    int16_t normalised;  // by the energy of the delayed samples
};

void try_delay(split_speech const& z, int delay, candidate& best) {
    int32_t const correlation = z.correlate(0, delay, false);
    if (correlation > best.correlation) {
        best.correlation = correlation;
        best.delay = delay;
    }
}

candidate search(split_speech const& z, int first, int last, int step) {
    candidate best = {first, min_32, 0};
    for (int delay = first; delay <= last; delay += step)
        try_delay(z, delay, best);
    return best;
}

void normalise(split_speech const& z, candidate& c) {
    int32_t const power = z.correlate(1, c.delay, true);
    c.normalised = extract_l(Mpy_32(c.correlation, Inv_sqrt(power)));
}

// Raises a by factor (Q15) of b for each way in which b's delay is about a multiple of a's.
void favour(candidate& a, candidate const& b, int factor) {
    int const twice = 2 * a.delay - b.delay;
    if (std::abs(twice) < 5)
        a.normalised = add(a.normalised, mult(b.normalised, factor));
    int const thrice = twice + a.delay;
    if (std::abs(thrice) < 7)
        a.normalised = add(a.normalised, mult(b.normalised, factor));
}

}  // namespace

int Pitch_ol_fast(int16_t const* wsp) {
    split_speech z;
    split(wsp, z);
    candidate shortest = search(z, pit_min, 39, 1);
    candidate middle = search(z, 40, 79, 1);
    candidate longest = search(z, 80, pit_max - 1, 2);
    int const even = longest.delay;
    try_delay(z, even + 1, longest);
    try_delay(z, even - 1, longest);
    normalise(z, shortest);
    normalise(z, middle);
    normalise(z, longest);

    favour(middle, longest, 8192);   // 0.25
    favour(shortest, middle, 6554);  // 0.20
    candidate const& best = shortest.normalised < middle.normalised ? middle : shortest;
    return best.normalised < longest.normalised ? longest.delay : best.delay;
}

}  // namespace g729a
