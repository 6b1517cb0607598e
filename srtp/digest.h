#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "lib/str.h"
#include "lib/wire.h"

/// MD5, SHA-1, and HMAC over both.

/// What the two share: 64-byte blocks, a state of 32-bit words, and the padding with the length in bits.
///
/// The algorithm names its byte order and initial state and compresses one block; it is a struct with
///     static constexpr std::endian order;
///     static constexpr std::uint32_t initial[] = {...};
///     static void compress(std::uint32_t* state, unsigned char const* block);
/// A digest is a plain value: copying it half-way continues both copies from there.

/// Numbers at any address in that byte order.
template <std::endian order>
inline std::uint32_t load32(unsigned char const* p) {
    std::uint32_t const value = wire::get32(p);
    return order == std::endian::big ? value : __builtin_bswap32(value);
}
template <std::endian order>
inline void store32(unsigned char* p, std::uint32_t value) {
    wire::put32(p, order == std::endian::big ? value : __builtin_bswap32(value));
}
template <std::endian order>
inline void store64(unsigned char* p, std::uint64_t value) {
    wire::put64(p, order == std::endian::big ? value : __builtin_bswap64(value));
}

template <typename algorithm>
class block_digest {
public:
    static constexpr int block_bytes = 64;
    static constexpr int digest_bytes = static_cast<int>(sizeof(algorithm::initial));

    block_digest() { std::memcpy(state, algorithm::initial, sizeof(state)); }

    /// Takes n more bytes, from any address.
    void update(unsigned char const* data, int n);
    void update(str const& data) { update(data.cbuffer(), data.length()); }

    /// Writes the digest_bytes of the result. The object is spent afterwards.
    void finish(unsigned char* digest);
    str finish() {
        unsigned char digest[digest_bytes];
        finish(digest);
        return str(digest, digest_bytes);
    }

protected:
    std::uint32_t state[digest_bytes / 4];

private:
    std::uint64_t total = 0;  ///< bytes so far
    unsigned char buffer[block_bytes] = {};
};

template <typename algorithm>
void block_digest<algorithm>::update(unsigned char const* data, int n) {
    int const used = static_cast<int>(total % block_bytes);
    total += static_cast<unsigned>(n);
    if (used > 0) {
        int const taken = std::min(n, block_bytes - used);
        std::memcpy(buffer + used, data, static_cast<unsigned>(taken));
        if (used + taken < block_bytes)
            return;
        algorithm::compress(state, buffer);
        data += taken;
        n -= taken;
    }
    for (; n >= block_bytes; data += block_bytes, n -= block_bytes)
        algorithm::compress(state, data);
    std::memcpy(buffer, data, static_cast<unsigned>(n));
}

template <typename algorithm>
void block_digest<algorithm>::finish(unsigned char* digest) {
    constexpr int length_at = block_bytes - 8;
    unsigned used = static_cast<unsigned>(total % block_bytes);
    buffer[used++] = 0x80;
    if (used > length_at) {
        std::memset(buffer + used, 0, block_bytes - used);
        algorithm::compress(state, buffer);
        used = 0;
    }
    std::memset(buffer + used, 0, length_at - used);
    store64<algorithm::order>(buffer + length_at, total * 8);
    algorithm::compress(state, buffer);
    for (int i = 0; i < digest_bytes / 4; i++)
        store32<algorithm::order>(digest + 4 * i, state[i]);
}

// ---- MD5 and SHA-1

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

// ---- HMAC (RFC 2104), and the P_hash expansion built on it

/// A running HMAC. Both key pads are absorbed when it is made, so a keyed object is worth keeping: every message
/// starts from a copy of it and saves two of the compressions and all work on the key.
template <typename digest>
class hmac {
public:
    static constexpr int mac_bytes = digest::digest_bytes;

    /// Any length of key; what is longer than 64 bytes is hashed first.
    explicit hmac(str const& key = str());
    void update(unsigned char const* data, int n) { inner.update(data, n); }
    void update(str const& data) { inner.update(data); }
    /// Writes mac_bytes. The object is spent afterwards: it keeps nothing of the key.
    void finish(unsigned char* mac);

private:
    digest inner, outer;
};
extern template class hmac<sha1>;
extern template class hmac<md5>;

/// 16 bytes.
str hmac_md5(str const& key, str const& data);
/// 20 bytes.
str hmac_sha(str const& key, str const& data);

/// P_hash (RFC 2246 section 5): at least `length` bytes, in whole blocks of the MAC; never cut.
str hmac_md5_expand(str const& secret, str const& seed, int length);
str hmac_sha_expand(str const& secret, str const& seed, int length);
