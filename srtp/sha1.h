#pragma once

#include "srtp/block_digest.h"

/// SHA-1 (FIPS 180-4): 20 bytes.
struct sha1_algorithm {
    static constexpr std::endian order = std::endian::big;
    static constexpr std::uint32_t initial[] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    static void compress(std::uint32_t* state, unsigned char const* block);
};
extern template class block_digest<sha1_algorithm>;
using sha1 = block_digest<sha1_algorithm>;

/// The digest of the data.
str auth_sha1(str const& data);
