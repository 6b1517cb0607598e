#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "lib/str.h"
#include "lib/wire.h"

/// What MD5 and SHA-1 share: 64-byte blocks, a state of 32-bit words, and the padding with the length in bits.
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
