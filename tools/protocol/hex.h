// Bytes and their hexadecimal text, as the tools print and read them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace protocol {

using bytes = std::vector<std::uint8_t>;
using byte_view = std::span<std::uint8_t const>;

// Two lower-case digits per byte, nothing in between.
std::string to_hex(byte_view data);

// Reads pairs of digits of either case; blanks, line ends and ":" may stand between pairs. nullopt for
// anything else.
std::optional<bytes> from_hex(std::string_view text);

// The bytes of a text as they are.
bytes to_bytes(std::string_view text);

}  // namespace protocol
