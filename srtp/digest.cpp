#include "srtp/digest.h"

#include "lib/wipe.h"

#include <utility>

// ---- MD5

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

// ---- SHA-1

namespace {

struct ch {
    static constexpr word constant = 0x5A827999;
    static word mix(word b, word c, word d) { return d ^ (b & (c ^ d)); }
};
template <word k>
struct parity {
    static constexpr word constant = k;
    static word mix(word b, word c, word d) { return b ^ c ^ d; }
};
struct maj {
    static constexpr word constant = 0x8F1BBCDC;
    static word mix(word b, word c, word d) { return (b & c) | (d & (b | c)); }
};

/// Step t of 0..79. Instead of moving the five working variables, the steps take turns in what each is called;
/// the message schedule keeps its last 16 words, which come from the block when a step first wants them: most then
/// stay in registers.
template <typename function, unsigned t>
[[gnu::always_inline]] inline void step(word (&v)[5], word (&w)[16], unsigned char const* block) {
    constexpr unsigned first = 80 - t;
    word& b = v[(first + 1) % 5];
    word& e = v[(first + 4) % 5];
    if constexpr (t < 16)
        w[t] = load32<sha1_algorithm::order>(block + 4 * t);
    else
        w[t % 16] = std::rotl(w[(t + 13) % 16] ^ w[(t + 8) % 16] ^ w[(t + 2) % 16] ^ w[t % 16], 1);
    e += std::rotl(v[first % 5], 5) + function::mix(b, v[(first + 2) % 5], v[(first + 3) % 5]) + function::constant +
         w[t % 16];
    b = std::rotl(b, 30);
}

template <typename function, unsigned from, unsigned... t>
[[gnu::always_inline]] inline void steps(word (&v)[5], word (&w)[16], unsigned char const* block,
                                         std::integer_sequence<unsigned, t...>) {
    (step<function, from + t>(v, w, block), ...);
}

}  // namespace

void sha1_algorithm::compress(word* state, unsigned char const* block) {
    constexpr std::make_integer_sequence<unsigned, 20> twenty;
    word w[16];
    word v[5] = {state[0], state[1], state[2], state[3], state[4]};
    steps<ch, 0>(v, w, block, twenty);
    steps<parity<0x6ED9EBA1>, 20>(v, w, block, twenty);
    steps<maj, 40>(v, w, block, twenty);
    steps<parity<0xCA62C1D6>, 60>(v, w, block, twenty);
    for (int i = 0; i < 5; i++)
        state[i] += v[i];
}

template class block_digest<sha1_algorithm>;

str auth_sha1(str const& data) {
    sha1 digest;
    digest.update(data);
    return digest.finish();
}

// ---- HMAC

namespace {

template <typename digest>
str one_shot(str const& key, str const& data) {
    hmac<digest> mac(key);
    mac.update(data);
    unsigned char result[hmac<digest>::mac_bytes];
    mac.finish(result);
    return str(result, sizeof(result));
}

str expand(str (*mac)(str const& key, str const& data), str const& secret, str const& seed, int length) {
    str result;
    for (str a = mac(secret, seed); result.length() < length; a = mac(secret, a))
        result += mac(secret, a + seed);
    return result;
}

}  // namespace

template <typename digest>
hmac<digest>::hmac(str const& key) {
    unsigned char pad[digest::block_bytes] = {};
    if (key.length() > digest::block_bytes) {
        digest hashed;
        hashed.update(key);
        hashed.finish(pad);
    } else {
        std::memcpy(pad, key.cbuffer(), static_cast<unsigned>(key.length()));
    }
    for (unsigned char& octet : pad)
        octet ^= 0x36;
    inner.update(pad, sizeof(pad));
    for (unsigned char& octet : pad)
        octet ^= 0x36 ^ 0x5C;
    outer.update(pad, sizeof(pad));
    wipe(pad, sizeof(pad));
}

template <typename digest>
void hmac<digest>::finish(unsigned char* mac) {
    unsigned char hashed[mac_bytes];
    inner.finish(hashed);
    outer.update(hashed, mac_bytes);
    outer.finish(mac);
    wipe(this, sizeof *this);
}

template class hmac<sha1>;
template class hmac<md5>;

str hmac_md5(str const& key, str const& data) {
    return one_shot<md5>(key, data);
}

str hmac_sha(str const& key, str const& data) {
    return one_shot<sha1>(key, data);
}

str hmac_md5_expand(str const& secret, str const& seed, int length) {
    return expand(hmac_md5, secret, seed, length);
}

str hmac_sha_expand(str const& secret, str const& seed, int length) {
    return expand(hmac_sha, secret, seed, length);
}
