#pragma once

#include <cstdint>

#include "lib/str.h"

/// AES encryption (FIPS-197) of single blocks with 128 or 256 bits of key. There is no decryption: counter mode needs
/// none. The tables must have been computed.

/// A 128-bit cipher block: 16 bytes in the order of the standards, which are also four 32-bit words for copying
/// and XOR. The words' values depend on the host's byte order; only their bytes in memory mean something.
struct v128_t {
    std::uint32_t word[4];

    unsigned char* octets() { return reinterpret_cast<unsigned char*>(word); }
    unsigned char const* octets() const { return reinterpret_cast<unsigned char const*>(word); }
    /// Byte i, 0..15.
    unsigned char& operator[](int i) { return octets()[i]; }
    unsigned char operator[](int i) const { return octets()[i]; }
};
static_assert(sizeof(v128_t) == 16);

/// x = x XOR y. Written out: a loop over the words would keep the block in memory, so it stays in registers.
inline void v128_xor(v128_t& x, v128_t const& y) {
    x.word[0] ^= y.word[0];
    x.word[1] ^= y.word[1];
    x.word[2] ^= y.word[2];
    x.word[3] ^= y.word[3];
}

/// Bytes 0..15 of the string into the block; bytes beyond the string's end are zero.
inline void v128_copy_octet_string(v128_t* block, str const& octets) {
    for (int i = 0; i < 16; i++)
        (*block)[i] = octets[i];
}

/// Round keys from a 16-byte key (FIPS-197 section 5.2); key 0 is the cipher key itself.
void aes_cm_expand_key(v128_t const& key, v128_t (&round_keys)[11]);
/// Encrypts one block in place.
void aes_cm_encrypt(v128_t* block, v128_t const (&round_keys)[11]);

/// out = in XOR the encrypted blocks `counter`, `counter` + 1, ..., for n bytes; in and out need no alignment and may
/// be the same. The last two bytes of the counter block are the number that counts, big-endian, and wrap without a
/// carry. The counter becomes that behind the last block used, all or part.
void aes_counter_mode(v128_t const* round_keys, int rounds, v128_t& counter, unsigned char const* in, int n,
                      unsigned char* out);

/// The same with a key of 16 or 32 bytes.
struct aes_key {
    v128_t round_keys[15]{};
    int rounds = 0;  ///< 10 or 14

    /// Missing bytes are zero; up to 16 bytes are a short key.
    void set(str const& key);
    /// Encrypts one block in place.
    void encrypt(v128_t& block) const;
    /// aes_counter_mode() with this key.
    void counter_mode(v128_t& counter, unsigned char const* in, int n, unsigned char* out) const;
};

// ---- the tables of the encryption round, and the arithmetic in GF(2^8) (FIPS-197 section 4) that they are built from.
// They take 4352 bytes and are computed once at start-up; until then they are all zero and nothing may be encrypted.

/// SubBytes (FIPS-197 section 5.1.1).
extern unsigned char aes_sbox[256];
/// aes_round_table[r][x] is what state byte x in row r contributes to its column of the round's result: the four
/// bytes of column r of the MixColumns matrix times aes_sbox[x], in memory order. Each row begins at a multiple of its
/// size.
alignas(1024) extern std::uint32_t aes_round_table[4][256];

/// Fills all tables. To be called once, before the first key is set.
void aes_compute_tables();
/// Fills aes_sbox: the affine transform of every byte's inverse.
void aes_init_sbox();

/// a times x in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1.
unsigned char aes_shift(unsigned char a);
/// The product of two elements.
unsigned char aes_multiply(unsigned char a, unsigned char b);
/// The multiplicative inverse; 0 for 0.
unsigned char aes_inverse(unsigned char a);
/// The affine transform over GF(2): the bits of x (bit 0 first) as a row vector times the matrix, plus b.
/// A: the matrix's eight rows, one byte each.
unsigned char A_times_x_plus_b(unsigned char* A, unsigned char x, unsigned char b);
