#pragma once

#include <cstdint>

#include "lib/str.h"

/// A 128-bit cipher block: 16 bytes in the order of the standards, which are also four 32-bit words for copying
/// and XOR. The words' values depend on the host's byte order; only their bytes in memory mean something.
struct v128_t {
    std::uint32_t word[4];

    unsigned char* octets() { return reinterpret_cast<unsigned char*>(word); }
    unsigned char const* octets() const { return reinterpret_cast<unsigned char const*>(word); }
    /// Byte i, 0..15.
    unsigned char& operator[](int i) { return octets()[i]; }
    unsigned char operator[](int i) const { return octets()[i]; }
};
static_assert(sizeof(v128_t) == 16);

/// Bytes 0..15 of the string into the block; bytes beyond the string's end are zero.
inline void v128_copy_octet_string(v128_t* block, str const& octets) {
    for (int i = 0; i < 16; i++)
        (*block)[i] = octets[i];
}
