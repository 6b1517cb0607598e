#include "codecs/g729a/g729a.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "tests/codecs/g729a/signals.h"

namespace {

namespace fs = std::filesystem;
using namespace g729a_test;

std::vector<uint8_t> read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<int16_t> read_pcm(const fs::path& path) {
    const std::vector<uint8_t> bytes = read_file(path);
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    return samples;
}

// Decodes a frame as a receiver does that checks the parity and knows of losses.
void decode(g729a_state& state, const uint8_t* bytes, bool lost, int16_t* pcm) {
    lrcodec_obj = &state;
    g729a_decoder& decoder = state.decoder;
    int16_t* parm = decoder.parm;
    bits2prm_ld8k(bytes, parm + g729a_parm_first);
    parm[g729a_parm_bad_frame] = lost;
    parm[g729a_parm_parity] = g729a_pitch_parity(parm[g729a_parm_p1]) != parm[g729a_parm_parity];
    Decod_ld8a(parm, decoder.synth, decoder.a_t, decoder.t0);
    Post_Filter(decoder.synth, decoder.a_t, decoder.t0);
    Post_Process(decoder.synth, g729a_frame_samples);
    std::copy_n(decoder.synth, g729a_frame_samples, pcm);
}

struct frame_counts {
    size_t encoded = 0;
    size_t decoded = 0;
};

void check_encoder(const fs::path& input, const std::vector<uint8_t>& expected, frame_counts& counts) {
    const std::vector<int16_t> pcm = read_pcm(input);
    const size_t frames = pcm.size() / g729a_frame_samples;
    ASSERT_EQ(frames * g729a_frame_bytes, expected.size()) << input;
    g729a_state state;
    g729a_init(state);
    for (size_t i = 0; i < frames; ++i, ++counts.encoded) {
        uint8_t bytes[g729a_frame_bytes];
        g729a_encode_frame(state, &pcm[i * g729a_frame_samples], bytes);
        ASSERT_TRUE(std::equal(bytes, bytes + sizeof bytes, &expected[i * sizeof bytes]))
            << input << " encoder, frame " << i;
    }
}

void check_decoder(const fs::path& base, const std::vector<uint8_t>& stream, const fs::path& output,
                   frame_counts& counts) {
    const std::vector<int16_t> expected = read_pcm(output);
    const size_t frames = stream.size() / g729a_frame_bytes;
    ASSERT_EQ(frames * g729a_frame_samples, expected.size()) << output;
    std::ifstream list(base.string() + ".erased.txt");
    const std::set<size_t> erased{std::istream_iterator<size_t>(list), {}};
    g729a_state state;
    g729a_init(state);
    for (size_t i = 0; i < frames; ++i, ++counts.decoded) {
        int16_t pcm[g729a_frame_samples];
        decode(state, &stream[i * g729a_frame_bytes], erased.count(i) != 0, pcm);
        ASSERT_TRUE(std::equal(pcm, pcm + g729a_frame_samples, &expected[i * g729a_frame_samples]))
            << output << " decoder, frame " << i;
    }
}

// Codes and decodes every vector of a folder; the names of input and output end as given.
void check_folder(const fs::path& folder, const char* input, const char* output, frame_counts& counts) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() != ".g729")
            continue;
        const fs::path base = fs::path(entry.path()).replace_extension();
        const std::vector<uint8_t> stream = read_file(entry.path());
        if (fs::exists(base.string() + input))
            check_encoder(base.string() + input, stream, counts);
        check_decoder(base, stream, base.string() + output, counts);
    }
}

TEST(G729aVectors, Committed) {
    frame_counts counts;
    ASSERT_TRUE(fs::exists(G729A_COMMITTED_VECTORS)) << "test vectors are missing from the source tree";
    check_folder(G729A_COMMITTED_VECTORS, ".pcm", ".dec", counts);
    EXPECT_EQ(counts.encoded, 2510u);
    EXPECT_EQ(counts.decoded, 4010u);
}

TEST(G729aVectors, Complete) {
    const fs::path folder = G729A_ALL_VECTORS;
    if (!fs::exists(folder))
        GTEST_SKIP() << "only the committed vectors were run: no " << folder
                     << " (set FXSMEDIA_G729_VECTORS to the complete set)";
    frame_counts own;
    check_folder(folder, ".pcm", ".dec", own);
    EXPECT_EQ(own.encoded, 9571u);
    EXPECT_EQ(own.decoded, 11571u);
    frame_counts itu;
    check_folder(folder / "itu", ".IN", ".PST", itu);
    EXPECT_EQ(itu.encoded, 8276u);
    EXPECT_EQ(itu.decoded, 9260u);
    std::printf("complete vectors: %zu + %zu frames encoded, %zu + %zu decoded\n", own.encoded, itu.encoded,
                own.decoded, itu.decoded);
}

// Arithmetic corners that ordinary signals miss. The digests were taken from a second build of the coder that
// clips after every single operation; that build reproduces the ITU-T's vectors, erasures included.
TEST(G729aDigest, Encoder) {
    digest sum;
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        g729a_state state;
        g729a_init(state);
        extreme_signal signal(seed);
        for (int i = 0; i < 2000; ++i) {
            int16_t pcm[g729a_frame_samples];
            uint8_t bytes[g729a_frame_bytes];
            signal.frame(pcm);
            g729a_encode_frame(state, pcm, bytes);
            for (uint8_t byte : bytes)
                sum.add(byte);
        }
    }
    EXPECT_EQ(sum.value(), 0x3be1d3a30fb11358u);
}

// Random frames, some of them lost; every other block of 25 keeps its spectrum and its largest gains, which
// makes the synthesis overflow.
TEST(G729aDigest, DecoderWithLosses) {
    digest sum;
    random_source random(5);
    g729a_state state;
    g729a_init(state);
    uint8_t held[g729a_frame_bytes] = {};
    for (int i = 0; i < 6000; ++i) {
        uint8_t bytes[g729a_frame_bytes];
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random.next());
        if (i % 50 == 0)
            std::copy_n(bytes, sizeof bytes, held);
        if (i % 50 < 25) {
            std::copy_n(held, 3, bytes);
            bytes[9] = static_cast<uint8_t>(0x2b | (bytes[9] & 0x80));
        }
        int16_t pcm[g729a_frame_samples];
        decode(state, bytes, random.between(0, 9) == 0, pcm);
        for (int16_t sample : pcm)
            sum.add(sample);
    }
    EXPECT_EQ(sum.value(), 0x545423ff92c87fc3u);
}

// RFC 3551 4.5.6: the first and the last bit of every parameter lie where the figure shows them.
TEST(G729aPacking, BitPositions) {
    constexpr int widths[] = {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7};
    int first_bit = 0;
    for (int i = 0; i < g729a_parameters; ++i) {
        for (int bit = 0; bit < widths[i]; ++bit) {
            int16_t parameters[g729a_parameters] = {};
            parameters[i] = static_cast<int16_t>(1 << bit);
            uint8_t bytes[g729a_frame_bytes];
            prm2bits_ld8k(parameters, bytes);
            const int position = first_bit + widths[i] - 1 - bit;
            uint8_t expected[g729a_frame_bytes] = {};
            expected[position / 8] = static_cast<uint8_t>(0x80 >> position % 8);
            EXPECT_TRUE(std::equal(bytes, bytes + sizeof bytes, expected)) << i << ' ' << bit;
            int16_t back[g729a_parameters];
            bits2prm_ld8k(bytes, back);
            EXPECT_TRUE(std::equal(back, back + g729a_parameters, parameters)) << i << ' ' << bit;
        }
        first_bit += widths[i];
    }
    EXPECT_EQ(first_bit, 80);
}

TEST(G729aParity, CoversTheSixUpperBits) {
    for (int p1 = 0; p1 < 256; ++p1) {
        const int ones = __builtin_popcount(static_cast<unsigned>(p1 >> 2));
        EXPECT_EQ(g729a_pitch_parity(static_cast<int16_t>(p1)), (ones + 1) % 2) << p1;
    }
}

// A wrong parity bit changes nothing for g729a_decode_frame(), but a lot for a receiver that checks it.
TEST(G729aParity, FrameDecoderIgnoresIt) {
    const std::vector<uint8_t> stream = read_file(fs::path(G729A_COMMITTED_VECTORS) / "speech_clip36db.g729");
    g729a_state good, flipped, checking;
    for (g729a_state* state : {&good, &flipped, &checking})
        g729a_init(*state);
    int differing = 0;
    for (size_t i = 0; i + g729a_frame_bytes <= stream.size(); i += g729a_frame_bytes) {
        uint8_t bytes[g729a_frame_bytes];
        std::copy_n(&stream[i], sizeof bytes, bytes);
        bytes[3] ^= 0x20;  // bit 26: P0
        int16_t pcm[3][g729a_frame_samples];
        g729a_decode_frame(good, &stream[i], pcm[0]);
        g729a_decode_frame(flipped, bytes, pcm[1]);
        decode(checking, bytes, false, pcm[2]);
        ASSERT_TRUE(std::equal(pcm[0], pcm[0] + g729a_frame_samples, pcm[1])) << i;
        differing += !std::equal(pcm[0], pcm[0] + g729a_frame_samples, pcm[2]);
    }
    EXPECT_GT(differing, 200);
}

// Channels share no memory: coding and decoding four by turns is the same as one after the other.
TEST(G729aState, ChannelsAreIndependent) {
    constexpr uint32_t channels = 4;
    constexpr int frames = 300;
    const auto run = [](g729a_state& state, extreme_signal& signal, digest& sum) {
        int16_t pcm[g729a_frame_samples];
        uint8_t bytes[g729a_frame_bytes];
        signal.frame(pcm);
        g729a_encode_frame(state, pcm, bytes);
        g729a_decode_frame(state, bytes, pcm);
        for (int16_t sample : pcm)
            sum.add(sample);
    };
    digest alone[channels], by_turns[channels];
    std::vector<g729a_state> states(channels);
    std::vector<extreme_signal> signals;
    for (uint32_t k = 0; k < channels; ++k) {
        std::memset(&states[k], 0x55, sizeof states[k]);
        g729a_init(states[k]);
        signals.emplace_back(k);
        extreme_signal signal(k);
        g729a_state state;
        std::memset(&state, 0xaa, sizeof state);
        g729a_init(state);
        for (int i = 0; i < frames; ++i)
            run(state, signal, alone[k]);
    }
    for (int i = 0; i < frames; ++i)
        for (uint32_t k = 0; k < channels; ++k)
            run(states[k], signals[k], by_turns[k]);
    for (uint32_t k = 0; k < channels; ++k)
        EXPECT_EQ(by_turns[k].value(), alone[k].value()) << k;
}

// Lost frames fade: forty of them leave less than a tenth of the level.
TEST(G729aState, LostFramesFade) {
    const std::vector<uint8_t> stream = read_file(fs::path(G729A_COMMITTED_VECTORS) / "hum_50hz.g729");
    g729a_state state;
    g729a_init(state);
    int16_t pcm[g729a_frame_samples];
    for (size_t i = 0; i < 100; ++i)
        decode(state, &stream[i * g729a_frame_bytes], false, pcm);
    const int before = *std::max_element(pcm, pcm + g729a_frame_samples);
    EXPECT_GT(before, 1000);
    for (int i = 0; i < 40; ++i)
        decode(state, stream.data(), true, pcm);
    EXPECT_LT(*std::max_element(pcm, pcm + g729a_frame_samples), before / 10);
}

}  // namespace
