#include "srtp/aes.h"

#include <bit>
#include <cstring>

unsigned char aes_sbox[256];
std::uint32_t aes_round_table[4][256];

namespace {

/// Position of the least significant bit of byte i of a word as it lies in memory.
constexpr int position(int i) {
    return std::endian::native == std::endian::little ? 8 * i : 24 - 8 * i;
}

inline unsigned octet(std::uint32_t word, int i) {
    return word >> position(i) & 0xFF;
}

inline std::uint32_t word_of(unsigned char octet, int i) {
    return static_cast<std::uint32_t>(octet) << position(i);
}

/// aes_round_table[row][x]. The row is added to the address last, where it costs nothing: it is the load's offset.
template <unsigned row>
inline std::uint32_t looked_up(unsigned x) {
    std::uint32_t const* const first_row = reinterpret_cast<std::uint32_t const*>(aes_round_table) + x;
    return first_row[256 * row];
}

/// SubBytes, ShiftRows and MixColumns of one column: its four bytes come from columns a, b, c and d.
inline std::uint32_t mixed_column(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return looked_up<0>(octet(a, 0)) ^ looked_up<1>(octet(b, 1)) ^ looked_up<2>(octet(c, 2)) ^
           looked_up<3>(octet(d, 3));
}

inline void aes_round(v128_t& state, v128_t const& key) {
    std::uint32_t const a = state.word[0], b = state.word[1], c = state.word[2], d = state.word[3];
    state.word[0] = mixed_column(a, b, c, d) ^ key.word[0];
    state.word[1] = mixed_column(b, c, d, a) ^ key.word[1];
    state.word[2] = mixed_column(c, d, a, b) ^ key.word[2];
    state.word[3] = mixed_column(d, a, b, c) ^ key.word[3];
}

/// SubBytes and ShiftRows of one column.
inline std::uint32_t substituted_column(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return word_of(aes_sbox[octet(a, 0)], 0) | word_of(aes_sbox[octet(b, 1)], 1) | word_of(aes_sbox[octet(c, 2)], 2) |
           word_of(aes_sbox[octet(d, 3)], 3);
}

/// The last round has no MixColumns.
inline void aes_final_round(v128_t& state, v128_t const& key) {
    std::uint32_t const a = state.word[0], b = state.word[1], c = state.word[2], d = state.word[3];
    state.word[0] = substituted_column(a, b, c, d) ^ key.word[0];
    state.word[1] = substituted_column(b, c, d, a) ^ key.word[1];
    state.word[2] = substituted_column(c, d, a, b) ^ key.word[2];
    state.word[3] = substituted_column(d, a, b, c) ^ key.word[3];
}

}  // namespace

namespace {

/// SubWord and, with `rotate`, RotWord before it.
std::uint32_t substituted_word(std::uint32_t word, bool rotate) {
    std::uint32_t substituted = 0;
    for (int i = 0; i < 4; i++)
        substituted |= word_of(aes_sbox[octet(word, rotate ? (i + 1) % 4 : i)], i);
    return substituted;
}

/// The words behind the cipher key, which is `key_words` long and stands in front.
void expand(v128_t* round_keys, int key_words, int rounds) {
    auto const word = [&](int n) -> std::uint32_t& { return round_keys[n / 4].word[n % 4]; };
    unsigned char round_constant = 1;
    for (int n = key_words; n < 4 * (rounds + 1); n++) {
        std::uint32_t last = word(n - 1);
        if (n % key_words == 0) {
            last = substituted_word(last, true) ^ word_of(round_constant, 0);
            round_constant = aes_shift(round_constant);
        } else if (key_words > 6 && n % key_words == 4) {
            last = substituted_word(last, false);
        }
        word(n) = word(n - key_words) ^ last;
    }
}

void encrypt(v128_t* block, v128_t const* round_keys, int rounds) {
    v128_t state = *block;
    v128_xor(state, round_keys[0]);
    for (int n = 1; n < rounds; n++)
        aes_round(state, round_keys[n]);
    aes_final_round(state, round_keys[rounds]);
    *block = state;
}

}  // namespace

void aes_cm_expand_key(v128_t const& key, v128_t (&round_keys)[11]) {
    round_keys[0] = key;
    expand(round_keys, 4, 10);
}

void aes_cm_encrypt(v128_t* block, v128_t const (&round_keys)[11]) {
    encrypt(block, round_keys, 10);
}

void aes_key::set(str const& key) {
    bool const is_long = key.length() > 16;
    rounds = is_long ? 14 : 10;
    v128_copy_octet_string(&round_keys[0], key);
    if (is_long)
        v128_copy_octet_string(&round_keys[1], key.substr(16));
    expand(round_keys, is_long ? 8 : 4, rounds);
}

void aes_key::encrypt(v128_t& block) const {
    ::encrypt(&block, round_keys, rounds);
}

// ---- tables

unsigned char aes_shift(unsigned char a) {
    return static_cast<unsigned char>(a << 1 ^ (a & 0x80 ? 0x1B : 0));
}

unsigned char aes_multiply(unsigned char a, unsigned char b) {
    unsigned char product = 0;
    for (; b; b >>= 1, a = aes_shift(a))
        if (b & 1)
            product ^= a;
    return product;
}

unsigned char aes_inverse(unsigned char a) {
    unsigned char inverse = 1;  // becomes a^254 = a^2 a^4 ... a^128
    for (int i = 0; i < 7; i++) {
        a = aes_multiply(a, a);
        inverse = aes_multiply(inverse, a);
    }
    return inverse;
}

unsigned char A_times_x_plus_b(unsigned char* A, unsigned char x, unsigned char b) {
    for (int i = 0; i < 8; i++)
        if (x >> i & 1)
            b ^= A[i];
    return b;
}

void aes_init_sbox() {
    unsigned char affine[8] = {0x1F, 0x3E, 0x7C, 0xF8, 0xF1, 0xE3, 0xC7, 0x8F};
    for (int x = 0; x < 256; x++)
        aes_sbox[x] = A_times_x_plus_b(affine, aes_inverse(static_cast<unsigned char>(x)), 0x63);
}

void aes_compute_tables() {
    aes_init_sbox();
    for (int x = 0; x < 256; x++) {
        unsigned char const s1 = aes_sbox[x];
        unsigned char const s2 = aes_shift(s1);
        unsigned char const s3 = s2 ^ s1;
        unsigned char const columns[4][4] = {{s2, s1, s1, s3}, {s3, s2, s1, s1}, {s1, s3, s2, s1}, {s1, s1, s3, s2}};
        for (int row = 0; row < 4; row++)
            std::memcpy(&aes_round_table[row][x], columns[row], 4);
    }
}
