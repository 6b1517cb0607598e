#include "codecs/g726.h"

#include <gtest/gtest.h>
#include <spandsp.h>
#include <spandsp/expose.h>

#include "tests/support/signals.h"

// The oracle is libspandsp. (libavcodec's coder mixes the scale factors with another rounding, libsndfile's
// leaves out the rounding in FMULT: neither is bit-exact.)

namespace {

/// libspandsp's coder of one direction.
struct oracle {
    g726_state_t state;

    explicit oracle(int width) { g726_init(&state, width * 8000, G726_ENCODING_LINEAR, G726_PACKING_NONE); }
    /// Other codewords from now on, with the same adaptive state.
    void change_rate(int width) {
        oracle const fresh(width);
        state.rate = fresh.state.rate;
        state.bits_per_sample = fresh.state.bits_per_sample;
        state.enc_func = fresh.state.enc_func;
        state.dec_func = fresh.state.dec_func;
    }
    unsigned encode(std::int16_t sample) {
        std::uint8_t codeword = 0;
        g726_encode(&state, &codeword, &sample, 1);
        return codeword;
    }
    /// libspandsp lacks the block LIMO: beyond 14 bits its result wraps. The exponent of the reconstructed signal
    /// in its state says when: 14 and 15 stand for magnitudes from 8192 on, 0 in a negative one for -32768.
    int decode(unsigned codeword) {
        std::int16_t sample = 0;
        auto const byte = static_cast<std::uint8_t>(codeword);
        g726_decode(&state, &sample, &byte, 1);
        bool const negative = state.sr[0] < 0;
        int const exponent = state.sr[0] >> 6 & 15;
        if (exponent < 14 && !(negative && exponent == 0))
            return sample;
        return negative ? -32768 : 32764;
    }
};

/// Our encoder and decoder beside libspandsp's.
struct both {
    g726 encoder, decoder;  // at 4 bits, what a new coder has
    oracle reference_encoder{4}, reference_decoder{4};

    explicit both(int bits) { change_rate(bits); }
    void change_rate(int bits) {
        encoder.set_rate(static_cast<g726::rate>(bits));
        decoder.set_rate(static_cast<g726::rate>(bits));
        reference_encoder.change_rate(bits);
        reference_decoder.change_rate(bits);
    }
    void expect_same(std::int16_t sample) {
        unsigned const codeword = encoder.encode(static_cast<std::uint16_t>(sample));
        ASSERT_EQ(codeword, reference_encoder.encode(sample));
        ASSERT_EQ(decoder.decode(codeword), reference_decoder.decode(codeword));
    }
};

class g726_widths : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(bits, g726_widths, testing::Range(2, 6));

// The rate changes now and then in the loud speech, which leaves the adaptive state as it is.
TEST_P(g726_widths, agrees_with_libspandsp_over_seconds_of_signal) {
    std::mt19937 random(31);
    for (signals::named const& signal : signals::assortment(64000, 32767, 726)) {
        both coders(GetParam());
        for (std::size_t i = 0; i < signal.pcm.size(); i++) {
            if (signal.name.starts_with("speech") && random() % 200 == 0)
                coders.change_rate(signals::uniform(random, 2, 5));
            ASSERT_NO_FATAL_FAILURE(coders.expect_same(signal.pcm[i])) << signal.name << ", sample " << i;
        }
        coders.change_rate(GetParam());
        coders.encoder.reset();  // but not the rate
        coders.reference_encoder = oracle(GetParam());
        for (std::int16_t const sample : signals::noise(2000, 8000, 2))
            ASSERT_NO_FATAL_FAILURE(coders.expect_same(sample)) << signal.name << ", reset";
    }
}

// No encoder sends these: the coefficients and the reconstructed signal reach the ends of their 16 bits and wrap.
TEST_P(g726_widths, agrees_with_libspandsp_on_any_codewords) {
    int const bits = GetParam();
    std::vector<signals::bytes> streams;
    for (int hold : {1, 3, 30, 1000, 5000})
        streams.push_back(signals::codes(200000, bits, hold, 5));
    for (int constant = 0; constant < 1 << bits; constant++)
        streams.push_back(signals::bytes(20000, static_cast<std::uint8_t>(constant)));
    for (std::size_t i = 0; i < streams.size(); i++) {
        both coders(bits);
        for (unsigned const codeword : streams[i])
            ASSERT_EQ(coders.decoder.decode(codeword), coders.reference_decoder.decode(codeword)) << i;
    }
}

TEST_P(g726_widths, takes_the_low_bits_of_every_sample_and_byte) {
    for (unsigned sample = 0; sample < 65536; sample++) {
        both coders(GetParam());
        ASSERT_EQ(coders.encoder.encode(sample | 0xABCD0000),
                  coders.reference_encoder.encode(static_cast<std::int16_t>(sample)));
        unsigned const byte = sample & 255, codeword = byte & ((1u << GetParam()) - 1);
        ASSERT_EQ(coders.decoder.decode(byte), coders.reference_decoder.decode(codeword)) << byte;
    }
}

}  // namespace
