#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

/// What stands in commands and reports besides numbers and texts.
namespace fxsmedia {

/// Bytes that somebody else holds.
using byte_view = std::span<std::uint8_t const>;

/// An IP address with a port.
struct endpoint {
    std::uint8_t ip[16] = {};   ///< network byte order
    std::uint8_t ip_bytes = 0;  ///< 4 (IPv4) or 16 (IPv6)
    std::uint16_t port = 0;     ///< host byte order

    bool operator==(endpoint const&) const = default;

    /// From "192.0.2.1" or "2001:db8::1", without brackets; no host names: the protocol carries none. nullopt for
    /// anything else, and for a port that is not 0 to 65535.
    static std::optional<endpoint> from_text(char const* ip, int port) {
        endpoint parsed;
        if (port < 0 || port > 0xFFFF)
            return std::nullopt;
        parsed.port = static_cast<std::uint16_t>(port);
        if (inet_pton(AF_INET, ip, parsed.ip) == 1)
            parsed.ip_bytes = 4;
        else if (inet_pton(AF_INET6, ip, parsed.ip) == 1)
            parsed.ip_bytes = 16;
        else
            return std::nullopt;
        return parsed;
    }
};

/// A codec and the RTP payload type that stands for it.
struct codec_choice {
    int codec = 0;         ///< protocol::codec_number
    int payload_type = 0;  ///< 0 to 127

    bool operator==(codec_choice const&) const = default;
};

}  // namespace fxsmedia
