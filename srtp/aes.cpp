#include "srtp/aes.h"

#include <bit>
#include <cstring>

unsigned char aes_sbox[256];
alignas(1024) std::uint32_t aes_round_table[4][256];

namespace {

/// Position of the least significant bit of byte i of a word as it lies in memory.
constexpr int position(int i) {
    return std::endian::native == std::endian::little ? 8 * i : 24 - 8 * i;
}

/// The word with byte i as its lowest.
inline std::uint32_t down_to(std::uint32_t word, int i) {
    return word >> position(i);
}

inline unsigned octet(std::uint32_t word, int i) {
    return down_to(word, i) & 0xFF;
}

inline std::uint32_t word_of(unsigned char octet, int i) {
    return static_cast<std::uint32_t>(octet) << position(i);
}

/// Looks bytes up in the round table.
#if defined(__mips_isa_rev) && __mips_isa_rev >= 2 && !defined(__mips64) && !defined(__mips16)
class round_table {
public:
    /// aes_round_table[row][lowest byte of x]. A row's address has zeros where the index of an entry belongs, so one
    /// instruction makes the entry's address of that of any other: two fewer than to shift the index and to add it.
    template <int row>
    std::uint32_t find(std::uint32_t x) {
        asm("ins %0, %1, 2, 8" : "+r"(entries[row]) : "r"(x));
        return *entries[row];
    }

private:
    std::uint32_t const* entries[4] = {aes_round_table[0], aes_round_table[1], aes_round_table[2], aes_round_table[3]};
};
#else
class round_table {
public:
    /// aes_round_table[row][lowest byte of x]. The row is added to the address last, where it costs nothing: it is the
    /// load's offset.
    template <int row>
    static std::uint32_t find(std::uint32_t x) {
        std::uint32_t const* const entry = reinterpret_cast<std::uint32_t const*>(aes_round_table) + (x & 0xFF);
        return entry[256 * row];
    }
};
#endif

/// SubBytes, ShiftRows and MixColumns of one column: its four bytes come from columns a, b, c and d.
inline std::uint32_t mixed_column(round_table& table, std::uint32_t a, std::uint32_t b, std::uint32_t c,
                                  std::uint32_t d) {
    return table.find<0>(down_to(a, 0)) ^ table.find<1>(down_to(b, 1)) ^ table.find<2>(down_to(c, 2)) ^
           table.find<3>(down_to(d, 3));
}

/// A whole round.
[[gnu::always_inline]] inline v128_t mixed(round_table& table, v128_t const& state, v128_t const& key) {
    std::uint32_t const a = state.word[0], b = state.word[1], c = state.word[2], d = state.word[3];
    return {mixed_column(table, a, b, c, d) ^ key.word[0], mixed_column(table, b, c, d, a) ^ key.word[1],
            mixed_column(table, c, d, a, b) ^ key.word[2], mixed_column(table, d, a, b, c) ^ key.word[3]};
}

/// SubBytes and ShiftRows of one column.
inline std::uint32_t substituted_column(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return word_of(aes_sbox[octet(a, 0)], 0) | word_of(aes_sbox[octet(b, 1)], 1) | word_of(aes_sbox[octet(c, 2)], 2) |
           word_of(aes_sbox[octet(d, 3)], 3);
}

/// The last round has no MixColumns.
inline v128_t substituted(v128_t const& state, v128_t const& key) {
    std::uint32_t const a = state.word[0], b = state.word[1], c = state.word[2], d = state.word[3];
    return {substituted_column(a, b, c, d) ^ key.word[0], substituted_column(b, c, d, a) ^ key.word[1],
            substituted_column(c, d, a, b) ^ key.word[2], substituted_column(d, a, b, c) ^ key.word[3]};
}

/// Rounds 3 to the last, which is even. Two to a turn: the state's words change places without being moved.
[[gnu::always_inline]] inline v128_t later_rounds(round_table& table, v128_t const& second, v128_t const* round_keys,
                                                  int rounds) {
    v128_t state = mixed(table, second, round_keys[3]);
    for (int n = 4; n < rounds; n += 2)
        state = mixed(table, mixed(table, state, round_keys[n]), round_keys[n + 1]);
    return substituted(state, round_keys[rounds]);
}

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

/// Encrypted counter blocks one after the other, of which one differs from the next in its last byte, almost always.
/// That byte takes part in one column after the first round and in one byte of each column after the second; what the
/// other bytes do there is computed once.
class keystream_blocks {
public:
    keystream_blocks(v128_t const& first, v128_t const* keys, int count)
        : counter(first), round_keys(keys), rounds(count) {
        begin();
    }
    v128_t next(round_table& table) {
        v128_t second = others;
        add_changing(table, second, changing ^ table.find<3>(counter[15] ^ round_keys[0][15]));
        if (++counter[15] == 0) {
            ++counter[14];
            begin();
        }
        return later_rounds(table, second, round_keys, rounds);
    }
    v128_t const& next_counter() const { return counter; }

private:
    void begin() {
        round_table table;
        v128_t state = counter;
        v128_xor(state, round_keys[0]);
        v128_t const first = mixed(table, state, round_keys[1]);
        changing = first.word[0] ^ table.find<3>(state[15]);
        others = mixed(table, first, round_keys[2]);
        add_changing(table, others, first.word[0]);
    }
    /// Adds to the second round's columns what the first column of the first round gives them, or takes it out.
    static void add_changing(round_table& table, v128_t& second, std::uint32_t column) {
        second.word[0] ^= table.find<0>(down_to(column, 0));
        second.word[3] ^= table.find<1>(down_to(column, 1));
        second.word[2] ^= table.find<2>(down_to(column, 2));
        second.word[1] ^= table.find<3>(down_to(column, 3));
    }

    v128_t counter;  ///< of the next block
    v128_t const* round_keys;
    int rounds;
    std::uint32_t changing = 0;  ///< first column after round 1, without the last byte
    v128_t others{};             ///< after round 2, without what comes from that column
};

inline void xor_word(unsigned char* out, unsigned char const* in, std::uint32_t keystream) {
    std::uint32_t word;
    std::memcpy(&word, in, sizeof word);
    word ^= keystream;
    std::memcpy(out, &word, sizeof word);
}

/// out = in XOR keystream, for one whole block. Word by word, so that none of it passes through memory.
inline void xor_block(unsigned char* out, unsigned char const* in, v128_t const& keystream) {
    xor_word(out, in, keystream.word[0]);
    xor_word(out + 4, in + 4, keystream.word[1]);
    xor_word(out + 8, in + 8, keystream.word[2]);
    xor_word(out + 12, in + 12, keystream.word[3]);
}

/// The same for part of a block; apart, so that the keystream of whole blocks never needs an address.
[[gnu::noinline]] void xor_octets(unsigned char* out, unsigned char const* in, v128_t keystream, int n) {
    for (int i = 0; i < n; i++)
        out[i] = in[i] ^ keystream[i];
}

/// In place.
void encrypt(v128_t& block, v128_t const* round_keys, int rounds) {
    v128_t counter = block;
    block = v128_t{};
    aes_counter_mode(round_keys, rounds, counter, block.octets(), sizeof block, block.octets());
}

}  // namespace

void aes_cm_expand_key(v128_t const& key, v128_t (&round_keys)[11]) {
    round_keys[0] = key;
    expand(round_keys, 4, 10);
}

void aes_cm_encrypt(v128_t* block, v128_t const (&round_keys)[11]) {
    encrypt(*block, round_keys, 10);
}

// The only place that has the cipher's code: a single block is one of counter mode, too.
void aes_counter_mode(v128_t const* round_keys, int rounds, v128_t& counter, unsigned char const* in, int n,
                      unsigned char* out) {
    constexpr int block_bytes = sizeof(v128_t);
    round_table table;
    keystream_blocks stream(counter, round_keys, rounds);
    for (; n > 0; n -= block_bytes, in += block_bytes, out += block_bytes) {
        v128_t const keystream = stream.next(table);
        if (n < block_bytes) {
            xor_octets(out, in, keystream, n);
            break;
        }
        xor_block(out, in, keystream);
    }
    counter = stream.next_counter();
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
    ::encrypt(block, round_keys, rounds);
}

void aes_key::counter_mode(v128_t& counter, unsigned char const* in, int n, unsigned char* out) const {
    aes_counter_mode(round_keys, rounds, counter, in, n, out);
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
