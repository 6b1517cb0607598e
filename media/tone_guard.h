#pragma once

#include <cstdint>

/// Whether 20 ms anywhere in these samples are one or two steady tones of 300 to 2150 Hz: digits and call-progress
/// tones, which a pitch period more or less would break. 160 samples at least.
bool holds_tones(std::int16_t const* x, int n);
