#include "tools/protocol/hex.h"

namespace protocol {
namespace {

constexpr std::string_view digits = "0123456789abcdef";

// 0 to 15, or -1 when c is no hexadecimal digit.
int digit_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    char const lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool separates(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ':';
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

}  // namespace protocol
