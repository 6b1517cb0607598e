#include "srtp/aes_tables.h"

#include <cstring>

unsigned char aes_sbox[256];
std::uint32_t aes_round_table[4][256];

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
        unsigned char const columns[4][4] = {
            {s2, s1, s1, s3}, {s3, s2, s1, s1}, {s1, s3, s2, s1}, {s1, s1, s3, s2}};
        for (int row = 0; row < 4; row++)
            std::memcpy(&aes_round_table[row][x], columns[row], 4);
    }
}
