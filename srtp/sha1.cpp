#include "srtp/sha1.h"

#include <utility>

namespace {

using word = std::uint32_t;

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
/// the message schedule keeps its last 16 words.
template <typename function, unsigned t>
[[gnu::always_inline]] inline void step(word (&v)[5], word (&w)[16]) {
    constexpr unsigned first = 80 - t;
    word& b = v[(first + 1) % 5];
    word& e = v[(first + 4) % 5];
    if constexpr (t >= 16)
        w[t % 16] = std::rotl(w[(t + 13) % 16] ^ w[(t + 8) % 16] ^ w[(t + 2) % 16] ^ w[t % 16], 1);
    e += std::rotl(v[first % 5], 5) + function::mix(b, v[(first + 2) % 5], v[(first + 3) % 5]) +
         function::constant + w[t % 16];
    b = std::rotl(b, 30);
}

template <typename function, unsigned from, unsigned... t>
[[gnu::always_inline]] inline void steps(word (&v)[5], word (&w)[16], std::integer_sequence<unsigned, t...>) {
    (step<function, from + t>(v, w), ...);
}

}  // namespace

void sha1_algorithm::compress(word* state, unsigned char const* block) {
    constexpr std::make_integer_sequence<unsigned, 20> twenty;
    word w[16];
    for (int i = 0; i < 16; i++)
        w[i] = load32<order>(block + 4 * i);
    word v[5] = {state[0], state[1], state[2], state[3], state[4]};
    steps<ch, 0>(v, w, twenty);
    steps<parity<0x6ED9EBA1>, 20>(v, w, twenty);
    steps<maj, 40>(v, w, twenty);
    steps<parity<0xCA62C1D6>, 60>(v, w, twenty);
    for (int i = 0; i < 5; i++)
        state[i] += v[i];
}

template class block_digest<sha1_algorithm>;

str auth_sha1(str const& data) {
    sha1 digest;
    digest.update(data);
    return digest.finish();
}
