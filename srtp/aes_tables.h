#pragma once

#include <cstdint>

/// The tables of the AES encryption round and the arithmetic in GF(2^8) (FIPS-197 section 4) that they are built
/// from. They take 4352 bytes and are computed once at start-up; until then they are all zero and nothing may be
/// encrypted.

/// SubBytes (FIPS-197 section 5.1.1).
extern unsigned char aes_sbox[256];
/// aes_round_table[r][x] is what state byte x in row r contributes to its column of the round's result: the four
/// bytes of column r of the MixColumns matrix times aes_sbox[x], in memory order.
extern std::uint32_t aes_round_table[4][256];

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
