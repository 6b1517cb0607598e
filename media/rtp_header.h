#pragma once

#include <cstdint>

#include "lib/str.h"

/// The RTP header (RFC 3550 section 5.1), big-endian:
///
///     byte 0     version 2 (bits 7-6), padding (5), extension (4), CSRC count (3-0)
///     byte 1     marker (bit 7), payload type (6-0)
///     2-3        sequence number
///     4-7        timestamp, 8 kHz ticks
///     8-11       SSRC
///     12..       CSRC list, 4 bytes each
///     then       if extension: 2 bytes profile, 2 bytes length in 32-bit words, that many words
///
/// Padding is not interpreted: padding bytes stay in the payload.
struct rtp_header {
    /// Bytes of a header without CSRC list and extension; shorter packets are not RTP.
    static constexpr int fixed_bytes = 12;

    bool marker = false;
    int payload_type = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    str ssrc;                 ///< 4 bytes as they stand in the packet
    int bytes = fixed_bytes;  ///< length of the whole header; may exceed a truncated packet's

    /// Whether a packet of at least fixed_bytes carries version 2.
    static bool is_version_2(str const& packet) { return (packet[0] & 0xC0) == 0x80; }
    /// Reads the header of a packet of at least fixed_bytes.
    static rtp_header parse(str const& packet);
    /// A packet of this header (fixed part only; a short SSRC is padded with zero bytes) and the payload, made where
    /// the payload is when nobody shares it and it has room in front. The payload type's low 8 bits are OR-ed with the
    /// marker.
    str build(str payload) const;
};
