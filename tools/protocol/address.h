#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/protocol/bytes.h"

namespace protocol {

/// A network endpoint.
struct address {
    bytes ip;                ///< network byte order, 4 (IPv4) or 16 (IPv6) bytes
    std::uint16_t port = 0;  ///< host byte order

    bool operator==(address const&) const = default;
};

/// "127.0.0.1:5004" or "[::1]:5004", port 1 to 65535; nullopt for anything else. No host names: the protocol carries
/// none.
std::optional<address> parse_address(std::string_view text);

/// "127.0.0.1" or "::1" (brackets allowed) without port: 4 or 16 bytes, nullopt for anything else.
std::optional<bytes> parse_ip(std::string_view text);

/// As parse_address() reads it; "none" for an address of neither 4 nor 16 bytes.
std::string to_text(address const& endpoint);

/// The value of an address sub-field, 2 bytes port, then the address; nullopt unless the value holds 6 or 18 bytes.
std::optional<address> decode_address(byte_view value);

}  // namespace protocol
