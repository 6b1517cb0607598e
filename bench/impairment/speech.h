#pragma once

#include <cstdint>
#include <vector>

/// 16-bit samples at 8 kHz.
using sound = std::vector<std::int16_t>;

constexpr int sample_rate = 8000, samples_a_ms = sample_rate / 1000;

/// Pulses of a gliding pitch and some noise through two resonances, in syllables with pauses. The same on every
/// machine.
sound make_speech(std::uint64_t seed, int seconds);
/// 397 Hz, in which a click shows; no whole number of periods in a packet.
sound make_sine(int seconds);
/// Samples of a file in host byte order, over and over until it is as long as wanted; ends the program when there is
/// not a second of them.
sound read_speech(char const* path, int seconds);
