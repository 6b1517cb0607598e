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

// The correlations of all delays that the search begins with: even ones from 18 to 144, odd ones from 19 to 81.
struct correlations {
    static constexpr int even_count = 64;
    static constexpr int odd_count = 32;
    int32_t even[even_count];  // of the longest delay first
    int32_t odd[odd_count];

    explicit correlations(split_speech const& z) {
        fill(z, 2 * past, even, even_count);
        fill(z, past + 9, odd, odd_count);
    }
    int32_t at(int delay) const { return delay & 1 ? odd[(past + 9 - delay) / 2] : even[(2 * past - delay) / 2]; }

private:
    static void fill(split_speech const& z, int longest, int32_t* sum, int count) {
        int16_t const* x = z.even + past;
        int16_t const* y = z.delayed(longest);
        if (z.fits) {
            correlate_20(x, y, sum, count);
            add_correlations_20(x + 20, y + 20, sum, count);
        }
        for (int i = 0; i < count; ++i)
            sum[i] = z.fits ? 2 * sum[i] : L_mac_sum(0, x, y + i, taps);
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

void try_delay(int delay, int32_t correlation, candidate& best) {
    if (correlation > best.correlation) {
        best.correlation = correlation;
        best.delay = delay;
    }
}

candidate search(correlations const& c, int first, int last, int step) {
    candidate best = {first, min_32, 0};
    for (int delay = first; delay <= last; delay += step)
        try_delay(delay, c.at(delay), best);
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
    correlations const c(z);
    candidate shortest = search(c, pit_min, 39, 1);
    candidate middle = search(c, 40, 79, 1);
    candidate longest = search(c, 80, pit_max - 1, 2);
    int const even = longest.delay;
    try_delay(even + 1, z.correlate(0, even + 1, false), longest);
    try_delay(even - 1, z.correlate(0, even - 1, false), longest);
    normalise(z, shortest);
    normalise(z, middle);
    normalise(z, longest);

    favour(middle, longest, 8192);   // 0.25
    favour(shortest, middle, 6554);  // 0.20
    candidate const& best = shortest.normalised < middle.normalised ? middle : shortest;
    return best.normalised < longest.normalised ? longest.delay : best.delay;
}

}  // namespace g729a
