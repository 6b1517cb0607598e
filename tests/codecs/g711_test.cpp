#include "codecs/g711.h"

#include <gtest/gtest.h>
#include <spandsp.h>

#include <cstdlib>

#include "lib/pcm.h"

namespace {

// The bias of this expansion is 128 instead of 132, its sign the opposite: how far its magnitude stays below
// the usual one depends on the segment.
int linear_of(std::uint8_t code) {
    int const usual = ulaw_to_linear(code);
    int const magnitude = std::abs(usual) - (4 << (~code >> 4 & 7)) + 4;
    return usual > 0 ? -magnitude : magnitude;
}

// Rounding towards zero in front of the table makes the three smallest negative samples positive.
std::uint8_t code_of(int sample) {
    return sample < 0 && sample > -4 ? 0xFF : linear_to_ulaw(sample);
}

}  // namespace

TEST(g711, every_code_against_spandsp) {
    for (int c = 0; c < 256; c++) {
        auto const code = static_cast<unsigned char>(c);
        EXPECT_EQ(g711::linear_from_mu_law(code), linear_of(code)) << c;
        EXPECT_EQ(g711::a_law_from_mu_law(code), ulaw_to_alaw(code)) << c;
        EXPECT_EQ(g711::mu_law_from_a_law(code), alaw_to_ulaw(code)) << c;
    }
    EXPECT_EQ(g711::linear_from_mu_law(0x00), 31616);
    EXPECT_EQ(g711::linear_from_mu_law(0xFE), -8);
}

// In blocks at even and odd addresses.
TEST(g711, every_sample_against_spandsp) {
    constexpr int n = 65536;
    static unsigned char input[2 * n + 1], codes[n], output[2 * n + 1];
    for (int at = 0; at < 2; at++)
        for (bool a_law : {false, true}) {
            for (int i = 0; i < n; i++)
                pcm::store_sample(input + at, i, static_cast<std::int16_t>(i - 32768));
            (a_law ? g711::encode_a_law : g711::encode_mu_law)(input + at, n, codes);
            (a_law ? g711::decode_a_law : g711::decode_mu_law)(codes, n, output + at);
            for (int i = 0; i < n; i++) {
                std::uint8_t const mu = code_of(i - 32768);
                ASSERT_EQ(g711::mu_law_from_linear(static_cast<std::int16_t>(i - 32768)), mu) << i;
                ASSERT_EQ(codes[i], a_law ? ulaw_to_alaw(mu) : mu) << i;
                std::uint8_t const back = a_law ? alaw_to_ulaw(codes[i]) : mu;
                ASSERT_EQ(pcm::load_sample(output + at, i), linear_of(back)) << i;
            }
        }
}
