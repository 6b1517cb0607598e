#pragma once

#include <cstdint>

/// The built-in call-progress tones: four kinds, each with one row for each of 16 tone sets.

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
