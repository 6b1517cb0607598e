// A network endpoint as the control protocol carries it: 2-byte big-endian port, then 4 (IPv4) or 16 (IPv6)
// address bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/protocol/hex.h"

namespace protocol {

struct address {
    bytes ip;                // network byte order, 4 or 16 bytes
    std::uint16_t port = 0;  // host byte order

    bool operator==(address const&) const = default;
};

// "127.0.0.1:5004" or "[::1]:5004", port 1 to 65535. No host names: the protocol carries none. nullopt when
// malformed.
std::optional<address> parse_address(std::string_view text);

// "127.0.0.1" or "::1" (brackets allowed), without port: 4 or 16 bytes, nullopt when malformed.
std::optional<bytes> parse_ip(std::string_view text);

std::string to_text(address const& endpoint);

// The value of an address sub-field, and back (nullopt unless it holds 6 or 18 bytes).
bytes encode_address(address const& endpoint);
std::optional<address> decode_address(byte_view value);

}  // namespace protocol
