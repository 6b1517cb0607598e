#pragma once

#include <cstdint>

/// Open-loop pitch estimate of a frame (G.729 A.3.4).
namespace g729a {

/// Delay (pit_min..pit_max) that fits the weighted speech wsp[0..79] best, short ones favoured; wsp[-143..-1] is its
/// past. Only even samples are looked at.
int Pitch_ol_fast(int16_t const* wsp);

}  // namespace g729a
