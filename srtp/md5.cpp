#include "srtp/md5.h"

namespace {

using word = std::uint32_t;

/// RFC 1321 section 3.4: floor(2^32 |sin(i + 1)|), i in radians.
constexpr word sines[64] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};

/// One of the four rounds of 16 steps.
struct round {
    word (*mix)(word b, word c, word d);
    int rotations[4];   ///< in turn
    int first, stride;  ///< step i takes message word (first + stride * i) modulo 16
};
constexpr round rounds[4] = {
    {[](word b, word c, word d) { return d ^ (b & (c ^ d)); }, {7, 12, 17, 22}, 0, 1},
    {[](word b, word c, word d) { return c ^ (d & (b ^ c)); }, {5, 9, 14, 20}, 1, 5},
    {[](word b, word c, word d) { return b ^ c ^ d; }, {4, 11, 16, 23}, 5, 3},
    {[](word b, word c, word d) { return c ^ (b | ~d); }, {6, 10, 15, 21}, 0, 7},
};

}  // namespace

void md5_algorithm::compress(word* state, unsigned char const* block) {
    word x[16];
    for (int i = 0; i < 16; i++)
        x[i] = load32<order>(block + 4 * i);
    word a = state[0], b = state[1], c = state[2], d = state[3];
    for (int i = 0; i < 64; i++) {
        round const& r = rounds[i / 16];
        word const sum = a + r.mix(b, c, d) + x[(r.first + r.stride * (i % 16)) % 16] + sines[i];
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, r.rotations[i % 4]);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

void md5::transform(str const& block) {
    unsigned char octets[block_bytes];
    for (int i = 0; i < block_bytes; i++)
        octets[i] = block[i];
    md5_algorithm::compress(state, octets);
}

str md5::encode(unsigned int* words, int n) {
    str octets;
    for (int i = 0; i < n; i++)
        octets += static_cast<unsigned char>(words[i / 4] >> 8 * (i % 4));
    return octets;
}

template class block_digest<md5_algorithm>;

str auth_md5_bin(str const& data) {
    md5 digest;
    digest.update(data);
    return digest.final_bin();
}
