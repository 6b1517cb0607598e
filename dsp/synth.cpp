#include "dsp/synth.h"

#include <algorithm>

#include "lib/log.h"
#include "lib/pcm.h"

namespace {

constexpr int full_envelope = 256;
constexpr int ramp_step = 2;  // a full attack or release in 128 samples, 16 ms
constexpr int peak = 32767;

/// The positive half of a period of 256 steps: 32767 x sin(pi x i / 128), rounded to nearest.
constexpr int half_wave_steps = 128;
constexpr std::int16_t half_wave[half_wave_steps] = {
    0,     804,   1608,  2410,  3212,  4011,  4808,  5602,  6393,  7179,  7962,  8739,  9512,  10278, 11039, 11793,
    12539, 13279, 14010, 14732, 15446, 16151, 16846, 17530, 18204, 18868, 19519, 20159, 20787, 21403, 22005, 22594,
    23170, 23731, 24279, 24811, 25329, 25832, 26319, 26790, 27245, 27683, 28105, 28510, 28898, 29268, 29621, 29956,
    30273, 30571, 30852, 31113, 31356, 31580, 31785, 31971, 32137, 32285, 32412, 32521, 32609, 32678, 32728, 32757,
    32767, 32757, 32728, 32678, 32609, 32521, 32412, 32285, 32137, 31971, 31785, 31580, 31356, 31113, 30852, 30571,
    30273, 29956, 29621, 29268, 28898, 28510, 28105, 27683, 27245, 26790, 26319, 25832, 25329, 24811, 24279, 23731,
    23170, 22594, 22005, 21403, 20787, 20159, 19519, 18868, 18204, 17530, 16846, 16151, 15446, 14732, 14010, 13279,
    12539, 11793, 11039, 10278, 9512,  8739,  7962,  7179,  6393,  5602,  4808,  4011,  3212,  2410,  1608,  804,
};

/// Sine of an angle in 1/256 of a period (0..255), -32767..32767.
int full_wave(unsigned step) {
    int const value = half_wave[step % half_wave_steps];
    return step < half_wave_steps ? value : -value;
}

/// Sample n of a sine. The phase is n * frequency * 32 / 125, 2048 steps a period: the upper 8 bits pick the
/// table step, the lower 3 interpolate. The product wraps at 2^32 and the phase jumps there.
int oscillator(std::int32_t frequency, std::uint32_t n) {
    if (frequency == 0)
        return 0;
    std::uint32_t const phase = n * static_cast<std::uint32_t>(frequency) * 32 / 125;
    unsigned const step = phase / 8 % 256;
    int const fraction = static_cast<int>(phase % 8);
    return ((8 - fraction) * full_wave(step) + fraction * full_wave((step + 1) % 256)) / 8;
}

}  // namespace

void synth::clear() {
    frequency1 = frequency2 = 0;
    initial_samples = 0;
    boundary1 = boundary2 = boundary3 = cycle = 0;
    level = 0;
    envelope = 0;
    counter = 0;
}

void synth::set_program(int freq1, int freq2, int initial, int on1, int off1, int on2, int off2, int new_level) {
    frequency1 = freq1;
    frequency2 = freq2;
    initial_samples = initial;
    boundary1 = on1;
    boundary2 = boundary1 + off1;
    boundary3 = boundary2 + on2;
    cycle = boundary3 + off2;
    level = new_level;
    envelope = 0;
    counter = 0;
    log_line(7, "Synth %d %d %d %d %d %d %d %d", arg_int(freq1), arg_int(freq2), arg_int(initial), arg_int(on1),
             arg_int(off1), arg_int(on2), arg_int(off2), arg_int(new_level));
}

int synth::set_tone(int set, int kind) {
    if (set < 1 || set > tone_sets || kind < 1 || kind > tone_kinds) {
        clear();
        return 0;
    }
    tone_row const& row = tone_tables[kind - 1][set - 1];
    set_program(row.freq1, row.freq2, row.initial, row.on1, row.off1, row.on2, row.off2, row.level);
    return 1;
}

/// How the envelope moves at the current sample. Behind an initial period the cadence runs with the roles of
/// on and off swapped.
int synth::envelope_step() const {
    std::uint32_t const initial = static_cast<std::uint32_t>(initial_samples);
    if (counter < initial)
        return ramp_step;
    if (cycle < 1)
        return 0;
    int const phase = static_cast<int>((counter - initial) % static_cast<std::uint32_t>(cycle));
    bool const on = phase < boundary1 || (phase >= boundary2 && phase < boundary3);
    return on == (initial == 0) ? ramp_step : -ramp_step;
}

std::int16_t synth::next_sample() {
    envelope = std::clamp(envelope + envelope_step(), 0, full_envelope);
    std::uint32_t const n = counter++;
    if (envelope == 0)
        return 0;
    int const tones = oscillator(frequency1, n) + oscillator(frequency2, n);
    int const shaped = envelope * tones / full_envelope;
    return static_cast<std::int16_t>(std::clamp(level * shaped / 256, -peak, peak));
}

str synth::get_10ms() {
    std::int16_t samples[pcm::block_samples];
    for (std::int16_t& sample : samples)
        sample = next_sample();
    return str(reinterpret_cast<unsigned char const*>(samples), sizeof samples);
}

tone_row const tone_tables[tone_kinds][tone_sets] = {
    {
        {440, 480, 0, 16000, 32000, 16000, 32000, 16},
        {400, 450, 0, 3200, 1600, 3200, 16000, 16},
        {425, 0, 2000, 32000, 8000, 32000, 8000, 32},
        {420, 450, 0, 8000, 40000, 0, 0, 32},
        {425, 450, 0, 8000, 32000, 0, 0, 32},
        {425, 0, 0, 8000, 40000, 0, 0, 32},
        {425, 0, 0, 8000, 32000, 0, 0, 32},
        {425, 0, 0, 8000, 32000, 0, 0, 32},
        {400, 0, 0, 8000, 16000, 0, 0, 32},
        {425, 500, 0, 8000, 32000, 0, 0, 32},
        {425, 0, 0, 8000, 32000, 0, 0, 32},
        {440, 0, 0, 12000, 28000, 0, 0, 32},
        {400, 0, 0, 3200, 1600, 3200, 16000, 16},
        {400, 440, 0, 8000, 24000, 8000, 24000, 32},
        {425, 0, 0, 12000, 24000, 0, 0, 32},
        {400, 0, 0, 3200, 1600, 3200, 16000, 16},
    },
    {
        {480, 620, 0, 2000, 2000, 2000, 2000, 16},
        {400, 0, 0, 2960, 2960, 2960, 2960, 16},
        {425, 0, 0, 3840, 3840, 3840, 3840, 32},
        {420, 0, 0, 3200, 3200, 3200, 3200, 32},
        {425, 450, 0, 4000, 4000, 4000, 4000, 32},
        {425, 0, 0, 2000, 2000, 2000, 2000, 32},
        {425, 0, 0, 4000, 4000, 4000, 4000, 32},
        {425, 0, 0, 2000, 2000, 0, 0, 32},
        {400, 0, 0, 4000, 4000, 4000, 4000, 32},
        {400, 0, 0, 4000, 4000, 4000, 4000, 32},
        {425, 0, 0, 4000, 4000, 4000, 4000, 32},
        {440, 0, 0, 4000, 4000, 4000, 4000, 32},
        {400, 0, 0, 2960, 2960, 2960, 2960, 16},
        {400, 440, 0, 4000, 4000, 4000, 4000, 32},
        {425, 0, 0, 1600, 1600, 1600, 1600, 32},
        {400, 0, 0, 2960, 2960, 2960, 2960, 16},
    },
    {
        {480, 620, 0, 2000, 2000, 2000, 2000, 64},
        {400, 0, 0, 3200, 2800, 1760, 4160, 64},
        {425, 0, 0, 1920, 1920, 1920, 1920, 64},
        {420, 0, 0, 1600, 1600, 1600, 1600, 64},
        {425, 450, 0, 2000, 2000, 2000, 2000, 64},
        {425, 0, 0, 2000, 6000, 2000, 6000, 64},
        {425, 0, 0, 2000, 2000, 2000, 2000, 64},
        {425, 0, 0, 2000, 2000, 2000, 2000, 64},
        {400, 0, 0, 4000, 4000, 4000, 4000, 64},
        {425, 0, 0, 1600, 1600, 1600, 1600, 64},
        {425, 0, 0, 1600, 1600, 1600, 1600, 64},
        {440, 0, 0, 4000, 4000, 4000, 4000, 64},
        {400, 0, 0, 3200, 2800, 1760, 4160, 64},
        {400, 440, 0, 4000, 4000, 4000, 4000, 64},
        {425, 0, 0, 1600, 1600, 1600, 4800, 64},
        {400, 0, 0, 3200, 2800, 1760, 4160, 64},
    },
    {
        {350, 440, 2000, 0, 0, 0, 0, 16},
        {350, 450, 2000, 0, 0, 0, 0, 16},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {150, 450, 2000, 0, 0, 0, 0, 16},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {400, 0, 2000, 0, 0, 0, 0, 16},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {425, 0, 0, 4800, 8000, 1600, 1600, 64},
        {440, 0, 2000, 0, 0, 0, 0, 32},
        {400, 425, 2000, 0, 0, 0, 0, 16},
        {400, 0, 2000, 0, 0, 0, 0, 32},
        {425, 0, 2000, 0, 0, 0, 0, 32},
        {425, 0, 2000, 0, 0, 0, 0, 32},
    },
};
