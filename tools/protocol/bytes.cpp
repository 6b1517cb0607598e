#include "tools/protocol/bytes.h"

#include <array>

namespace protocol {
namespace {

constexpr std::string_view digits = "0123456789abcdef";

/// 0 to 15; -1 for anything but a hexadecimal digit.
int digit_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    char const lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool separates(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ':';
}

std::string printable(std::string const& text) {
    std::string safe;
    for (char const c : text) {
        auto const byte = static_cast<std::uint8_t>(c);
        if (byte < 0x20 || byte >= 0x7F)
            safe += "\\x" + to_hex(std::array{byte});
        else if (c == '"' || c == '\\')
            safe += std::string("\\") + c;
        else
            safe += c;
    }
    return safe;
}

}  // namespace

std::string to_hex(byte_view data) {
    std::string text;
    text.reserve(data.size() * 2);
    for (std::uint8_t const byte : data) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::optional<bytes> from_hex(std::string_view text) {
    bytes data;
    for (std::size_t i = 0; i < text.size();) {
        if (separates(text[i])) {
            ++i;
            continue;
        }
        int const high = digit_value(text[i]);
        int const low = i + 1 < text.size() ? digit_value(text[i + 1]) : -1;
        if (high < 0 || low < 0)
            return std::nullopt;
        data.push_back(static_cast<std::uint8_t>(high << 4 | low));
        i += 2;
    }
    return data;
}

bytes to_bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string quoted(std::string const& text) {
    std::string const safe = printable(text);
    bool const plain = safe == text && !safe.empty() && safe.find_first_of(" =") == std::string::npos;
    return plain ? safe : "\"" + safe + "\"";
}

}  // namespace protocol
