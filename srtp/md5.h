#pragma once

#include "srtp/block_digest.h"

/// MD5 (RFC 1321): 16 bytes.
struct md5_algorithm {
    static constexpr std::endian order = std::endian::little;
    static constexpr std::uint32_t initial[] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    static void compress(std::uint32_t* state, unsigned char const* block);
};

extern template class block_digest<md5_algorithm>;

/// A running MD5. After final() or final_bin() the object is spent.
class md5 : public block_digest<md5_algorithm> {
public:
    /// The raw digest of everything given to update().
    str final_bin() { return finish(); }
    /// The same 16 raw bytes.
    str final() { return final_bin(); }
    /// Runs one 64-byte block through the state, past buffer and length count; missing bytes are zero.
    void transform(str const& block);
    /// The first n bytes of words laid out in MD5's byte order, the least significant byte first.
    static str encode(unsigned int* words, int n);
};

/// The digest of the data.
str auth_md5_bin(str const& data);
