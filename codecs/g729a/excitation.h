#pragma once

#include <cstdint>

// The excitation from its two parts, and what the pitch gain leaves for the next subframe; alike in coder and
// decoder (G.729 3.10, 4.1.6).

namespace g729a {

constexpr int16_t sharp_min = 3277;   // Q14, 0.2
constexpr int16_t sharp_max = 13017;  // Q14, 0.7945

// exc[0..39] = gain_pit exc + gain_code code; gain_pit Q14 0..29491, gain_code Q1 >= 0, code Q13.
void build_excitation(int16_t exc[40], int16_t const code[40], int16_t gain_pit, int16_t gain_code);

// Pitch sharpening of the next subframe (Q14) after a pitch gain (Q14).
int16_t next_sharp(int16_t gain_pit);

}  // namespace g729a
