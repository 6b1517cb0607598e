#pragma once

#include <stdexcept>
#include <vector>

#include "tests/support/bytes.h"

/// An RTP packet (RFC 3550 section 5.1), built and parsed apart from the product's code.
struct rtp_packet {
    int payload_type = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
    bool marker = false;
    bool padding = false;
    std::string payload;
    int csrc_count = 0;
    int extension_words = -1;  ///< -1: no extension header

    std::string build() const {
        int const first = 0x80 | (padding ? 0x20 : 0) | (extension_words >= 0 ? 0x10 : 0) | csrc_count;
        std::string bytes{static_cast<char>(first), static_cast<char>((marker ? 0x80 : 0) | payload_type)};
        bytes += be16(sequence) + be32(timestamp) + be32(ssrc);
        for (int i = 0; i < csrc_count; i++)
            bytes += be32(0xC5C50000u + static_cast<unsigned>(i));
        if (extension_words >= 0) {
            bytes += be16(0xBEDE) + be16(static_cast<unsigned>(extension_words));
            bytes.append(4 * static_cast<std::size_t>(extension_words), '\x77');
        }
        return bytes + payload;
    }

    /// A packet with the plain 12-byte header that fxsmedia sends; anything else throws.
    static rtp_packet parse(std::string_view bytes) {
        if (bytes.size() < 12 || bytes[0] != static_cast<char>(0x80))
            throw std::runtime_error("no plain RTP header: " + to_hex(bytes.substr(0, 12)));
        rtp_packet p;
        p.marker = (bytes[1] & 0x80) != 0;
        p.payload_type = bytes[1] & 0x7F;
        p.sequence = static_cast<std::uint16_t>(get_be16(bytes, 2));
        p.timestamp = get_be32(bytes, 4);
        p.ssrc = get_be32(bytes, 8);
        p.payload = bytes.substr(12);
        return p;
    }
};
