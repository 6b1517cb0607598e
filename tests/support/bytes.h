#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lib/str.h"

/// Byte strings in tests are std::string; these cross over to the product's str and back.
inline std::string to_string(str const& data) {
    return {reinterpret_cast<char const*>(data.cbuffer()), static_cast<std::size_t>(data.length())};
}

inline str to_str(std::string_view data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), static_cast<int>(data.size()));
}

/// Bytes from hex text; blanks are ignored.
inline std::string from_hex(std::string_view text) {
    std::string bytes;
    int digits = 0;
    unsigned value = 0;
    for (char const c : text) {
        if (c == ' ')
            continue;
        value = value << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
        if (++digits % 2 == 0)
            bytes += static_cast<char>(value);
    }
    return bytes;
}

/// Hex text of bytes, so that a failed comparison can be read.
inline std::string to_hex(std::string_view bytes) {
    std::string text;
    for (char const c : bytes) {
        text += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
        text += "0123456789ABCDEF"[c & 15];
    }
    return text;
}

/// Hex text without its blanks.
inline std::string unspaced(std::string text) {
    std::erase(text, ' ');
    return text;
}

/// Big-endian 16 and 32 bits.
inline std::string be16(unsigned value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline std::string be32(std::uint32_t value) {
    return be16(value >> 16) + be16(value & 0xFFFF);
}

inline unsigned get_be16(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned>(static_cast<unsigned char>(bytes.at(at))) << 8 |
           static_cast<unsigned char>(bytes.at(at + 1));
}

inline std::uint32_t get_be32(std::string_view bytes, std::size_t at) {
    return get_be16(bytes, at) << 16 | get_be16(bytes, at + 2);
}
