#include "srtp/ghash.h"

#include <algorithm>

#include "lib/wire.h"

namespace {

constexpr int block_bytes = 16;
constexpr std::uint64_t reduction = std::uint64_t{0xE1} << 56;  // x^128 = x^7 + x^2 + x + 1

}  // namespace

ghash::ghash(v128_t const& key) : h{wire::get64(key.octets()), wire::get64(key.octets() + 8)} {}

/// y = (y + block) times h, bit by bit.
void ghash::take(std::uint64_t high, std::uint64_t low) {
    element const x{y.high ^ high, y.low ^ low};
    element multiple = h, sum{0, 0};
    for (int i = 0; i < 128; i++) {
        std::uint64_t const half = i < 64 ? x.high : x.low;
        std::uint64_t const wanted = 0 - (half >> (63 - i % 64) & 1);
        sum.high ^= multiple.high & wanted;
        sum.low ^= multiple.low & wanted;
        std::uint64_t const carry = 0 - (multiple.low & 1);
        multiple.low = multiple.low >> 1 | multiple.high << 63;
        multiple.high = multiple.high >> 1 ^ (reduction & carry);
    }
    y = sum;
}

void ghash::update(str const& data) {
    for (int at = 0; at < data.length(); at += block_bytes) {
        unsigned char block[block_bytes] = {};
        std::copy_n(data.cbuffer() + at, std::min(block_bytes, data.length() - at), block);
        take(wire::get64(block), wire::get64(block + 8));
    }
}

v128_t ghash::finish(int associated_bytes, int encrypted_bytes) {
    take(8 * static_cast<std::uint64_t>(associated_bytes), 8 * static_cast<std::uint64_t>(encrypted_bytes));
    v128_t result;
    wire::put64(result.octets(), y.high);
    wire::put64(result.octets() + 8, y.low);
    return result;
}
