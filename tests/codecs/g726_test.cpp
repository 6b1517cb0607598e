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
    int bits;

    explicit oracle(int width) { start(width); }
    void start(int width) {
        bits = width;
        g726_init(&state, width * 8000, G726_ENCODING_LINEAR, G726_PACKING_NONE);
    }
    /// Other codewords from now on, with the same adaptive state.
    void change_rate(int width) {
        g726_state_t const old = state;
        start(width);
        state.yl = old.yl;
        state.yu = old.yu;
        state.dms = old.dms;
        state.dml = old.dml;
        state.ap = old.ap;
        std::copy_n(old.a, 2, state.a);
        std::copy_n(old.b, 6, state.b);
        std::copy_n(old.pk, 2, state.pk);
        std::copy_n(old.dq, 6, state.dq);
        std::copy_n(old.sr, 2, state.sr);
        state.td = old.td;
    }
    unsigned encode(std::int16_t sample) {
        std::uint8_t codeword = 0;
        g726_encode(&state, &codeword, &sample, 1);
        return codeword;
    }
    /// libspandsp lacks the block LIMO: beyond 14 bits its result wraps. The exponent of the reconstructed signal
    /// in its state says when: 14 and 15 stand for magnitudes from 8192 on, 0 in a negative one for -32768.
    int decode(std::uint8_t codeword) {
        std::int16_t sample = 0;
        g726_decode(&state, &sample, &codeword, 1);
        bool const negative = state.sr[0] < 0;
        int const exponent = state.sr[0] >> 6 & 15;
        if (exponent < 14 && !(negative && exponent == 0))
            return sample;
        return negative ? -32768 : 32764;
    }
};

/// A coder of ours at the given width.
g726 coder(int bits) {
    g726 result;
    result.set_rate(static_cast<g726::rate>(bits));
    return result;
}

class G726 : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Bits, G726, testing::Range(2, 6));

TEST_P(G726, AgreesWithLibspandspOverSecondsOfSignal) {
    for (signals::named const& signal : signals::assortment(64000, 32767, 726)) {
        SCOPED_TRACE(signal.name);
        g726 encoder = coder(GetParam()), decoder = coder(GetParam());
        oracle reference_encoder(GetParam()), reference_decoder(GetParam());
        for (std::size_t i = 0; i < signal.pcm.size(); i++) {
            unsigned const codeword = encoder.encode(static_cast<std::uint16_t>(signal.pcm[i]));
            ASSERT_EQ(codeword, reference_encoder.encode(signal.pcm[i])) << "sample " << i;
            ASSERT_EQ(decoder.decode(codeword), reference_decoder.decode(static_cast<std::uint8_t>(codeword)))
                << "sample " << i;
        }
    }
}

// No encoder sends these: the coefficients and the reconstructed signal reach the ends of their 16 bits and wrap.
TEST_P(G726, AgreesWithLibspandspOnAnyCodewords) {
    int const bits = GetParam();
    for (int hold : {0, 1, 3, 30, 1000, 5000}) {
        for (int constant = 0; constant < (hold == 0 ? 1 << bits : 1); constant++) {
            SCOPED_TRACE(testing::Message() << "seed 5, held for " << hold << ", constant " << constant);
            signals::bytes const codewords = hold > 0
                                                 ? signals::codes(200000, bits, hold, 5)
                                                 : signals::bytes(20000, static_cast<std::uint8_t>(constant));
            g726 decoder = coder(bits);
            oracle reference(bits);
            for (std::size_t i = 0; i < codewords.size(); i++)
                ASSERT_EQ(decoder.decode(codewords[i]), reference.decode(codewords[i])) << "codeword " << i;
        }
    }
}

TEST_P(G726, EncodesTheLow16BitsOfEverySample) {
    for (unsigned sample = 0; sample < 65536; sample++) {
        g726 encoder = coder(GetParam());
        oracle reference(GetParam());
        ASSERT_EQ(encoder.encode(sample | 0xABCD0000), reference.encode(static_cast<std::int16_t>(sample)))
            << sample;
    }
}

TEST_P(G726, DecodesTheLowBitsOfEveryByte) {
    for (unsigned byte = 0; byte < 256; byte++) {
        g726 decoder = coder(GetParam());
        oracle reference(GetParam());
        unsigned const codeword = byte & ((1u << GetParam()) - 1);
        ASSERT_EQ(decoder.decode(byte), reference.decode(static_cast<std::uint8_t>(codeword))) << byte;
    }
}

TEST_P(G726, ResetRestoresTheInitialStateButNotTheRate) {
    g726 used = coder(GetParam()), fresh = coder(GetParam());
    for (std::int16_t const sample : signals::square(8000, 5, 30000))
        used.encode(static_cast<std::uint16_t>(sample));
    used.reset();
    for (std::int16_t const sample : signals::noise(2000, 8000, 2))
        ASSERT_EQ(used.encode(static_cast<std::uint16_t>(sample)),
                  fresh.encode(static_cast<std::uint16_t>(sample)));
}

TEST(G726Rate, ChangesInMidStreamWithoutDisturbingTheState) {
    std::mt19937 random(31);
    g726 encoder, decoder;  // at 4 bits, what a new coder has
    oracle reference_encoder(4), reference_decoder(4);
    for (std::int16_t const sample : signals::speech_like(160000, 30000, 31)) {
        if (random() % 200 == 0) {
            int const bits = signals::uniform(random, 2, 5);
            for (g726* ours : {&encoder, &decoder})
                ours->set_rate(static_cast<g726::rate>(bits));
            for (oracle* reference : {&reference_encoder, &reference_decoder})
                reference->change_rate(bits);
        }
        unsigned const codeword = encoder.encode(static_cast<std::uint16_t>(sample));
        ASSERT_EQ(codeword, reference_encoder.encode(sample)) << "seed 31";
        ASSERT_EQ(decoder.decode(codeword), reference_decoder.decode(static_cast<std::uint8_t>(codeword)))
            << "seed 31";
    }
}

}  // namespace
