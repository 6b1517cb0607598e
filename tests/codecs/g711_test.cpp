#include "codecs/g711.h"

#include <gtest/gtest.h>
#include <spandsp.h>

#include <cstdlib>

#include "codecs/pcm.h"

namespace {

// How far below the usual magnitude this expansion stays in a segment: the bias is 128 instead of 132.
int bias_difference(int code) {
    return (4 << (~code >> 4 & 7)) - 4;
}

}  // namespace

TEST(g711, pinned_codes) {
    struct {
        int sample, code;
    } const encoded[] = {{0, 0xFF},     {3, 0xFF},      {-3, 0xFF},   {4, 0xFE},
                         {7, 0xFE},     {-4, 0x7E},     {-7, 0x7E},   {-32768, 0x00},
                         {32767, 0x80}, {-32636, 0x00}, {8159, 0x9F}, {1000, 0xCE}};
    for (auto const& c : encoded)
        EXPECT_EQ(g711::mu_law_from_linear(static_cast<std::int16_t>(c.sample)), c.code) << c.sample;
    struct {
        int code, sample;
    } const decoded[] = {{0x00, 31616}, {0x80, -31616}, {0x7E, 8},  {0xFE, -8},
                         {0x7F, 0},     {0xFF, 0},      {0x6F, 128}};
    for (auto const& c : decoded)
        EXPECT_EQ(g711::linear_from_mu_law(static_cast<unsigned char>(c.code)), c.sample) << c.code;
}

TEST(g711, all_samples_against_spandsp) {
    for (int s = -32768; s < 32768; s++) {
        // Rounding towards zero in front of the table makes the three smallest negative samples positive.
        int const expected = s < 0 && s > -4 ? 0xFF : linear_to_ulaw(s);
        ASSERT_EQ(g711::mu_law_from_linear(static_cast<std::int16_t>(s)), expected) << s;
    }
}

TEST(g711, all_codes_against_spandsp) {
    for (int c = 0; c < 256; c++) {
        auto const code = static_cast<unsigned char>(c);
        int const usual = ulaw_to_linear(code);
        int const magnitude = std::abs(usual) - bias_difference(c);
        EXPECT_EQ(g711::linear_from_mu_law(code), usual > 0 ? -magnitude : magnitude) << c;
        EXPECT_EQ(g711::a_law_from_mu_law(code), ulaw_to_alaw(code)) << c;
        EXPECT_EQ(g711::mu_law_from_a_law(code), alaw_to_ulaw(code)) << c;
    }
}

// Blocks at even and odd addresses, with a guard behind each output.
TEST(g711, blocks) {
    constexpr int n = 65536;
    static unsigned char input[2 * n + 1], codes[n + 1], output[2 * n + 2];
    for (int at = 0; at < 2; at++)
        for (bool a_law : {false, true}) {
            for (int i = 0; i < n; i++)
                store_sample(input + at, i, static_cast<std::int16_t>(i - 32768));
            codes[n] = output[at + 2 * n] = 0x5C;
            (a_law ? g711::encode_a_law : g711::encode_mu_law)(input + at, n, codes);
            (a_law ? g711::decode_a_law : g711::decode_mu_law)(codes, n, output + at);
            EXPECT_EQ(codes[n], 0x5C);
            EXPECT_EQ(output[at + 2 * n], 0x5C);
            for (int i = 0; i < n; i++) {
                int const mu = g711::mu_law_from_linear(static_cast<std::int16_t>(i - 32768));
                int const code = a_law ? ulaw_to_alaw(static_cast<std::uint8_t>(mu)) : mu;
                ASSERT_EQ(codes[i], code) << i;
                int const back = a_law ? alaw_to_ulaw(static_cast<std::uint8_t>(code)) : code;
                ASSERT_EQ(load_sample(output + at, i),
                          g711::linear_from_mu_law(static_cast<unsigned char>(back)));
            }
        }
}
