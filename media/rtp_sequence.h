#pragma once

#include <cstdint>

/// Extends a 16-bit RTP sequence number to 32 bits, near the reference `last` (itself extended): within a
/// quarter of the number space around a wrap it moves to the next or the previous cycle. Wraps modulo 2^32 below
/// cycle 0.
constexpr std::uint32_t extend_sequence(std::uint16_t sequence, std::uint32_t last) {
    std::uint32_t const cycle = last & 0xFFFF0000;
    std::uint32_t const position = last & 0xFFFF;
    if (sequence < 0x4000 && position > 0xC000)
        return cycle + sequence + 0x10000;
    if (sequence > 0xC000 && position < 0x4000)
        return cycle + sequence - 0x10000;
    return cycle + sequence;
}
