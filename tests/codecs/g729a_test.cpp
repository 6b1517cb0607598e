#include "codecs/g729a/g729a.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/support/digest.h"
#include "tests/support/signals.h"

namespace {

namespace fs = std::filesystem;
using packed = std::array<uint8_t, g729a_frame_bytes>;
using sound = std::array<int16_t, g729a_frame_samples>;

// The whole frames of a file in little-endian order.
template <typename frame>
std::vector<frame> read(fs::path const& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::vector<frame> frames(static_cast<size_t>(fs::file_size(path)) / sizeof(frame));
    for (frame& each : frames)
        for (auto& value : each)
            for (size_t i = 0; i < sizeof value; ++i)
                value = static_cast<std::decay_t<decltype(value)>>(value | file.get() << 8 * i);
    return frames;
}

struct coder {
    g729a_state state;

    explicit coder(int garbage = 0) {
        std::memset(&state, garbage, sizeof state);
        g729a_init(state);
    }
    packed encode(sound const& pcm) {
        packed bytes;
        g729a_encode_frame(state, pcm.data(), bytes.data());
        return bytes;
    }
    sound decode(packed const& bytes) {
        sound pcm;
        g729a_decode_frame(state, bytes.data(), pcm.data());
        return pcm;
    }
    // As a receiver does that checks the parity and knows of losses.
    sound decode_checked(packed const& bytes, bool lost) {
        lrcodec_obj = &state;
        g729a_decoder& d = state.decoder;
        bits2prm_ld8k(bytes.data(), d.parm + g729a_parm_first);
        d.parm[g729a_parm_bad_frame] = lost;
        int16_t& parity = d.parm[g729a_parm_parity];
        parity = g729a_pitch_parity(d.parm[g729a_parm_p1]) != parity;
        Decod_ld8a(d.parm, d.synth, d.a_t, d.t0);
        Post_Filter(d.synth, d.a_t, d.t0);
        Post_Process(d.synth, g729a_frame_samples);
        return std::to_array(d.synth);
    }
};

// Codes and decodes every vector of a folder, whose input and output files end as given.
void check_folder(fs::path const& folder, char const* input, char const* output, size_t encoded_frames,
                  size_t decoded_frames) {
    size_t encoded = 0, decoded = 0;
    for (fs::path path : fs::directory_iterator(folder)) {
        if (path.extension() != ".g729")
            continue;
        SCOPED_TRACE(path);
        auto const stream = read<packed>(path);
        coder both;
        if (fs::exists(path.replace_extension(input)))
            for (size_t i = 0; sound const& pcm : read<sound>(path)) {
                ASSERT_EQ(both.encode(pcm), stream.at(i)) << "encoder, frame " << i;
                ++i, ++encoded;
            }
        std::ifstream list(path.replace_extension(".erased.txt"));
        std::set<size_t> const erased{std::istream_iterator<size_t>(list), {}};
        path.replace_extension().replace_extension(output);  // both halves of that one
        for (size_t i = 0; sound const& pcm : read<sound>(path)) {
            ASSERT_EQ(both.decode_checked(stream.at(i), erased.contains(i)), pcm) << "decoder, frame " << i;
            ++i, ++decoded;
        }
    }
    EXPECT_EQ(encoded, encoded_frames) << folder;
    EXPECT_EQ(decoded, decoded_frames) << folder;
}

TEST(g729a_vectors, committed) {
    check_folder(G729A_COMMITTED_VECTORS, ".pcm", ".dec", 2510, 4010);
}

TEST(g729a_vectors, complete) {
    fs::path const folder = G729A_ALL_VECTORS;
    if (!fs::exists(folder))
        GTEST_SKIP() << "only the committed vectors were run: no " << folder
                     << " (set FXSMEDIA_G729_VECTORS to the complete set)";
    check_folder(folder, ".pcm", ".dec", 9571, 11571);
    check_folder(folder / "itu", ".IN", ".PST", 8276, 9260);
}

// Noise, random and periodic squares, pulse trains, steps, near silence, resonances, each for up to 60 frames.
std::vector<sound> extreme_signal(unsigned seed, size_t frames) {
    std::mt19937 random(seed);
    auto const between = [&](int low, int high) { return signals::uniform(random, low, high); };
    int kind = 0, frames_left = 0, peak = 0, period = 2, time = 0;
    int64_t pole = 0, radius = 0, y1 = 0, y2 = 0;
    auto const sample = [&]() -> int64_t {
        ++time;
        switch (kind) {
            case 0: return between(-peak - 1, peak);
            case 1: return between(0, 1) == 0 ? peak : -peak - 1;
            case 2: return time / period % 2 == 0 ? peak : -peak - 1;
            case 3: return time % period == 0 ? peak : 0;
            case 4: return time / 400 % 2 == 0 ? peak : 0;
            case 5: return between(0, period) == 0 ? between(-32768, 32767) : 0;
            case 6: return between(-1, 1);
        }
        int64_t const y = (pole * y1 - radius * y2) / 32768 + between(-peak, peak) / 16;
        y2 = y1;
        return y1 = std::clamp<int64_t>(y, -200000, 200000);
    };
    std::vector<sound> signal(frames);
    for (sound& frame : signal) {
        if (frames_left-- == 0) {
            kind = between(0, 7), frames_left = between(1, 60), period = between(2, 200);
            peak = between(0, 2) == 0 ? 32767 : between(0, 32767);
            pole = between(-2 * 32000, 2 * 32000), radius = between(30000, 32767);
            y1 = y2 = 0;
        }
        for (int16_t& out : frame)
            out = static_cast<int16_t>(std::clamp<int64_t>(sample(), -32768, 32767));
    }
    return signal;
}

// Arithmetic corners that ordinary signals miss. The digests were taken from a second build of the coder that
// clips after every single operation; that build reproduces the ITU-T's vectors, erasures included.
// Channels by turns: they share no memory.
TEST(g729a_digest, encoders) {
    digest sum;
    constexpr size_t channels = 4, frames = 2000;
    std::vector<coder> encoders(channels, coder(0x55));
    std::vector<sound> input[channels];
    for (unsigned k = 0; k < channels; ++k)
        input[k] = extreme_signal(k + 1, frames);
    for (size_t i = 0; i < frames; ++i)
        for (size_t k = 0; k < channels; ++k)
            sum.add(encoders[k].encode(input[k][i]));
    EXPECT_EQ(sum.value, 0x2fc86a159eb1c12bu);
}

// Random frames, some of them lost; every other block of 25 keeps its spectrum and its largest gains, which
// makes the synthesis overflow.
TEST(g729a_digest, decoder_with_losses) {
    digest sum;
    std::mt19937 random(5);
    coder decoder;
    packed held = {};
    for (int i = 0; i < 20000; ++i) {
        packed bytes;
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random());
        if (i % 50 == 0)
            held = bytes;
        if (i % 50 < 25) {
            std::copy_n(held.begin(), 3, bytes.begin());
            bytes[9] = static_cast<uint8_t>(0x2b | (bytes[9] & 0x80));
        }
        sum.add(decoder.decode_checked(bytes, random() % 10 == 0));
    }
    EXPECT_EQ(sum.value, 0xb7132bf0848bc024u);
}

// A wrong parity bit changes a lot for a receiver that checks it, as vectors show, but nothing for
// g729a_decode_frame().
TEST(g729a_state, frame_decoder_ignores_parity) {
    coder good, flipped;
    for (packed bytes : read<packed>(fs::path(G729A_COMMITTED_VECTORS) / "speech_clip36db.g729")) {
        sound const pcm = good.decode(bytes);
        bytes[3] ^= 0x20;  // bit 26: P0
        ASSERT_EQ(flipped.decode(bytes), pcm);
    }
}

}  // namespace
