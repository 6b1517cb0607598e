// What the line driver carries in both directions: signed 16-bit samples in the machine's byte order, 8000 a
// second, in blocks of 10 ms.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace fxsline {

inline constexpr unsigned sample_rate_hz = 8000;
inline constexpr unsigned tick_ms = 10;      // one step of the line's clock
inline constexpr size_t block_samples = 80;  // what one tick carries in each direction
inline constexpr size_t block_bytes = 2 * block_samples;

using block = std::array<int16_t, block_samples>;

}  // namespace fxsline
