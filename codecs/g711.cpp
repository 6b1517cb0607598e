#include "codecs/g711.h"

#include <array>
#include <bit>

#include "lib/pcm.h"

namespace {

constexpr int linear_values = 16384;  // of 14 bits
constexpr unsigned sign_bit = 0x80;

// Compression of a 14-bit value (G.711 table 2a): segment and mantissa of the biased magnitude, inverted.
constexpr std::uint8_t compress(int x) {
    constexpr unsigned clip = 8159, bias = 33;
    unsigned const magnitude = static_cast<unsigned>(x < 0 ? -x : x);
    unsigned const biased = (magnitude < clip ? magnitude : clip) + bias;
    unsigned const segment = static_cast<unsigned>(std::bit_width(biased)) - 6;
    unsigned const code = segment < 8 ? segment << 4 | (biased >> (segment + 1) & 15) : 0x7F;
    return static_cast<std::uint8_t>(code ^ (x < 0 ? 0x7F : 0xFF));
}

constexpr std::int16_t expand(unsigned code) {
    constexpr int bias = 128;
    unsigned const v = ~code & 0x7F;
    int const magnitude = (static_cast<int>((v & 15) * 8) + bias) * (1 << (v >> 4)) - bias;
    return static_cast<std::int16_t>(code & sign_bit ? -magnitude : magnitude);
}

// Indexed by the 14-bit value + 8192.
constexpr std::array<std::uint8_t, linear_values> compression = [] {
    std::array<std::uint8_t, linear_values> table{};
    for (int i = 0; i < linear_values; i++)
        table[static_cast<unsigned>(i)] = compress(i - linear_values / 2);
    return table;
}();

constexpr std::array<std::int16_t, 256> expansion = [] {
    std::array<std::int16_t, 256> table{};
    for (unsigned code = 0; code < table.size(); code++)
        table[code] = expand(code);
    return table;
}();

// The conversions keep the sign bit, so that half a table is enough.
// clang-format off
constexpr std::uint8_t mu_to_a[128] = {
    0x2A, 0x2B, 0x28, 0x29, 0x2E, 0x2F, 0x2C, 0x2D, 0x22, 0x23, 0x20, 0x21, 0x26, 0x27, 0x24, 0x25,
    0x3A, 0x3B, 0x38, 0x39, 0x3E, 0x3F, 0x3C, 0x3D, 0x32, 0x33, 0x30, 0x31, 0x36, 0x37, 0x34, 0x35,
    0x0A, 0x0B, 0x08, 0x09, 0x0E, 0x0F, 0x0C, 0x0D, 0x02, 0x03, 0x00, 0x01, 0x06, 0x07, 0x04, 0x1A,
    0x1B, 0x18, 0x19, 0x1E, 0x1F, 0x1C, 0x1D, 0x12, 0x13, 0x10, 0x11, 0x16, 0x17, 0x14, 0x15, 0x6A,
    0x68, 0x69, 0x6E, 0x6F, 0x6C, 0x6D, 0x62, 0x63, 0x60, 0x61, 0x66, 0x67, 0x64, 0x65, 0x7A, 0x78,
    0x7E, 0x7F, 0x7C, 0x7D, 0x72, 0x73, 0x70, 0x71, 0x76, 0x77, 0x74, 0x75, 0x4B, 0x49, 0x4F, 0x4D,
    0x42, 0x43, 0x40, 0x41, 0x46, 0x47, 0x44, 0x45, 0x5A, 0x5B, 0x58, 0x59, 0x5E, 0x5F, 0x5C, 0x5D,
    0x52, 0x52, 0x53, 0x53, 0x50, 0x50, 0x51, 0x51, 0x56, 0x56, 0x57, 0x57, 0x54, 0x54, 0x55, 0x55,
};

constexpr std::uint8_t a_to_mu[128] = {
    0x2A, 0x2B, 0x28, 0x29, 0x2E, 0x2F, 0x2C, 0x2D, 0x22, 0x23, 0x20, 0x21, 0x26, 0x27, 0x24, 0x25,
    0x39, 0x3A, 0x37, 0x38, 0x3D, 0x3E, 0x3B, 0x3C, 0x31, 0x32, 0x2F, 0x30, 0x35, 0x36, 0x33, 0x34,
    0x0A, 0x0B, 0x08, 0x09, 0x0E, 0x0F, 0x0C, 0x0D, 0x02, 0x03, 0x00, 0x01, 0x06, 0x07, 0x04, 0x05,
    0x1A, 0x1B, 0x18, 0x19, 0x1E, 0x1F, 0x1C, 0x1D, 0x12, 0x13, 0x10, 0x11, 0x16, 0x17, 0x14, 0x15,
    0x62, 0x63, 0x60, 0x61, 0x66, 0x67, 0x64, 0x65, 0x5D, 0x5D, 0x5C, 0x5C, 0x5F, 0x5F, 0x5E, 0x5E,
    0x74, 0x76, 0x70, 0x72, 0x7C, 0x7E, 0x78, 0x7A, 0x6A, 0x6B, 0x68, 0x69, 0x6E, 0x6F, 0x6C, 0x6D,
    0x48, 0x49, 0x46, 0x47, 0x4C, 0x4D, 0x4A, 0x4B, 0x40, 0x41, 0x3F, 0x3F, 0x44, 0x45, 0x42, 0x43,
    0x56, 0x57, 0x54, 0x55, 0x5A, 0x5B, 0x58, 0x59, 0x4F, 0x4F, 0x4E, 0x4E, 0x52, 0x53, 0x50, 0x51,
};
// clang-format on

template <typename table>
constexpr unsigned char convert(table const& codes, unsigned char code) {
    return static_cast<unsigned char>(codes[code & 0x7F] | (code & sign_bit));
}

}  // namespace

namespace g711 {

unsigned char mu_law_from_linear(std::int16_t sample) {
    int const rounds_toward_zero = static_cast<int>(static_cast<unsigned>(int{sample}) >> 30);  // 3 for negative ones
    return compression[static_cast<unsigned>(((sample + rounds_toward_zero) >> 2) + linear_values / 2)];
}

std::int16_t linear_from_mu_law(unsigned char code) {
    return expansion[code];
}

unsigned char a_law_from_mu_law(unsigned char code) {
    return convert(mu_to_a, code);
}

unsigned char mu_law_from_a_law(unsigned char code) {
    return convert(a_to_mu, code);
}

// Unrolled: counting and comparing are half of what a sample takes otherwise.

void encode_mu_law(unsigned char const* pcm, int n, unsigned char* codes) {
    pcm::with_alignment_known(pcm, [=](unsigned char const* audio) {
#pragma GCC unroll 4
        for (int i = 0; i < n; i++)
            codes[i] = mu_law_from_linear(pcm::load_sample(audio, i));
    });
}

void decode_mu_law(unsigned char const* codes, int n, unsigned char* pcm) {
    pcm::with_alignment_known(pcm, [=](unsigned char* audio) {
#pragma GCC unroll 4
        for (int i = 0; i < n; i++)
            pcm::store_sample(audio, i, linear_from_mu_law(codes[i]));
    });
}

void encode_a_law(unsigned char const* pcm, int n, unsigned char* codes) {
    pcm::with_alignment_known(pcm, [=](unsigned char const* audio) {
#pragma GCC unroll 4
        for (int i = 0; i < n; i++)
            codes[i] = a_law_from_mu_law(mu_law_from_linear(pcm::load_sample(audio, i)));
    });
}

void decode_a_law(unsigned char const* codes, int n, unsigned char* pcm) {
    pcm::with_alignment_known(pcm, [=](unsigned char* audio) {
#pragma GCC unroll 4
        for (int i = 0; i < n; i++)
            pcm::store_sample(audio, i, linear_from_mu_law(mu_law_from_a_law(codes[i])));
    });
}

}  // namespace g711
