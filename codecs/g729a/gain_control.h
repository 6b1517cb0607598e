#pragma once

#include <cstdint>

// Adaptive gain control behind the post-filter (G.729 A.4.2.4).

namespace g729a {

constexpr int16_t gain_at_rest = 4096;  // Q12, 1.0

// Brings out[0..39] to the level of in[0..39], the gain (Q12) sliding on from sample to sample. An output
// that is next to silence stays as it is and sets the gain to 0.
void control_gain(int16_t const in[40], int16_t out[40], int16_t& gain);

}  // namespace g729a
