#include "dsp/synth.h"

#include <algorithm>

#include "dsp/sine_tables.h"
#include "dsp/tone_tables.h"
#include "lib/log.h"
#include "lib/pcm.h"

namespace {

constexpr int full_envelope = 256;
constexpr int ramp_step = 2;  // a full attack or release in 128 samples, 16 ms
constexpr int peak = 32767;

// Sample n of a sine. The phase is n * frequency * 32 / 125, 2048 steps a period: the upper 8 bits pick the
// table step, the lower 3 interpolate. The product wraps at 2^32 and the phase jumps there.
int oscillator(std::int32_t frequency, std::uint32_t n) {
    if (frequency == 0)
        return 0;
    std::uint32_t const phase = n * static_cast<std::uint32_t>(frequency) * 32 / 125;
    unsigned const step = phase / 8 % 256;
    int const fraction = static_cast<int>(phase % 8);
    return ((8 - fraction) * sine::full_wave(step) + fraction * sine::full_wave((step + 1) % 256)) / 8;
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

void synth::set_program(int freq1, int freq2, int initial, int on1, int off1, int on2, int off2,
                        int new_level) {
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
    log_line(7, "Synth %d %d %d %d %d %d %d %d", arg_int(freq1), arg_int(freq2), arg_int(initial),
             arg_int(on1), arg_int(off1), arg_int(on2), arg_int(off2), arg_int(new_level));
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

// How the envelope moves at the current sample. Behind an initial period the cadence runs with the roles of
// on and off swapped.
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
