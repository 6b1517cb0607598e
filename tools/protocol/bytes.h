#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Bytes and texts as the tools print and read them.
namespace protocol {

using bytes = std::vector<std::uint8_t>;
using byte_view = std::span<std::uint8_t const>;

/// Two lower-case digits a byte, nothing in between.
std::string to_hex(byte_view data);

/// Reads pairs of digits of either case; blanks, line ends and ":" may stand between pairs. nullopt for anything else.
std::optional<bytes> from_hex(std::string_view text);

/// The bytes of a text as they are.
bytes to_bytes(std::string_view text);

/// A text of unknown content for a terminal: bytes outside printable ASCII as \xNN, quotes and backslashes behind a
/// backslash; in quotes when that changed anything, or when the text is empty or holds blanks or "=".
std::string quoted(std::string const& text);

}  // namespace protocol
