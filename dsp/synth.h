#pragma once

#include <cstdint>

#include "lib/str.h"

/// Generator of call-progress tones (ringback, busy, dial tone, ...): one or two sine frequencies, switched
/// on and off by a cadence of up to two on/off pairs, with an optional initial on-time and a soft attack and
/// release of 16 ms. 16-bit samples at 8 kHz in blocks of 10 ms.
///
/// A plain value: owns no memory and knows no channel; a program runs until it is replaced or cleared. Which
/// tone a set and kind stand for is up to those who pick them.
class synth {
public:
    synth() { clear(); }

    /// Silence; empty() becomes true.
    void clear();

    /// Whether there is nothing to play (the level is 0).
    bool empty() const { return level == 0; }

    /// Starts a program from its first sample. All times are in samples, 0 or more, and their sums fit in 31
    /// bits.
    ///  freq1, freq2  Hz; 0 switches that oscillator off
    ///  initial       steady tone before the cadence starts; 0: none. Behind an initial period the cadence
    ///                starts with silence: on1 and on2 are then silent, off1 and off2 sound.
    ///  on1 .. off2   the cadence; all four 0: none. Without cadence a tone with an initial period goes on
    ///                for good and one without stays silent.
    ///  new_level     gain of each oscillator, 256 = full scale
    /// Logged at level 7.
    void set_program(int freq1, int freq2, int initial, int on1, int off1, int on2, int off2, int new_level);

    /// Starts row `set` (1..16) of the built-in table `kind` (1..4) and returns 1. Any other pair clears and returns 0.
    int set_tone(int set, int kind);

    /// The next 10 ms: 80 samples, host byte order.
    str get_10ms();

private:
    int envelope_step() const;
    std::int16_t next_sample();

    std::int32_t frequency1;       ///< Hz
    std::int32_t frequency2;       ///< Hz
    std::int32_t initial_samples;  ///< initial on-time
    std::int32_t boundary1;        ///< end of the first on-time, samples from the start of the cycle
    std::int32_t boundary2;        ///< end of the first off-time
    std::int32_t boundary3;        ///< end of the second on-time
    std::int32_t cycle;            ///< length of the cadence in samples; below 1: no cadence
    std::int32_t level;            ///< 1/256 steps
    std::int32_t envelope;         ///< gain of the attack and release ramp, 0..256
    std::uint32_t counter;         ///< samples since the program started; wraps
};

// ---- the built-in call-progress tones: four kinds, each with one row for each of 16 tone sets

/// One program of a `synth`, the arguments of synth::set_program in their order.
struct tone_row {
    std::uint16_t freq1;    ///< Hz
    std::uint16_t freq2;    ///< Hz; 0: one frequency only
    std::uint16_t initial;  ///< samples at 8 kHz, as are the four times behind it
    std::uint16_t on1;
    std::uint16_t off1;
    std::uint16_t on2;
    std::uint16_t off2;
    std::uint16_t level;  ///< gain of each frequency, 256 = full scale
};

constexpr int tone_kinds = 4;
constexpr int tone_sets = 16;

/// Indexed by kind - 1 and set - 1.
extern tone_row const tone_tables[tone_kinds][tone_sets];
