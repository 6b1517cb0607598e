#include "codecs/g729a/g729a.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

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
        for (auto& value : each) {
            unsigned sum = 0;
            for (size_t i = 0; i < sizeof value; ++i)
                sum |= static_cast<unsigned>(file.get()) << 8 * i;
            value = static_cast<std::decay_t<decltype(value)>>(sum);
        }
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
        g729a_decoder& decoder = state.decoder;
        int16_t* parm = decoder.parm;
        bits2prm_ld8k(bytes.data(), parm + g729a_parm_first);
        parm[g729a_parm_bad_frame] = lost;
        parm[g729a_parm_parity] = g729a_pitch_parity(parm[g729a_parm_p1]) != parm[g729a_parm_parity];
        Decod_ld8a(parm, decoder.synth, decoder.a_t, decoder.t0);
        Post_Filter(decoder.synth, decoder.a_t, decoder.t0);
        Post_Process(decoder.synth, g729a_frame_samples);
        sound pcm;
        std::copy_n(decoder.synth, pcm.size(), pcm.data());
        return pcm;
    }
};

// Codes and decodes every vector of a folder, whose input and output files end as given.
void check_folder(fs::path const& folder, char const* input, char const* output, size_t encoded_frames,
                  size_t decoded_frames) {
    size_t encoded = 0, decoded = 0;
    for (fs::directory_entry const& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() != ".g729")
            continue;
        SCOPED_TRACE(entry.path());
        std::string const base = fs::path(entry.path()).replace_extension().string();
        auto const stream = read<packed>(entry.path());
        coder both;
        if (fs::exists(base + input))
            for (size_t i = 0; sound const& pcm : read<sound>(base + input)) {
                ASSERT_EQ(both.encode(pcm), stream.at(i)) << "encoder, frame " << i;
                ++i, ++encoded;
            }
        std::ifstream list(base + ".erased.txt");
        std::set<size_t> const erased{std::istream_iterator<size_t>(list), {}};
        for (size_t i = 0; sound const& pcm : read<sound>(base + output)) {
            ASSERT_EQ(both.decode_checked(stream.at(i), erased.count(i) != 0), pcm) << "decoder, frame " << i;
            ++i, ++decoded;
        }
    }
    EXPECT_EQ(encoded, encoded_frames) << folder;
    EXPECT_EQ(decoded, decoded_frames) << folder;
}

TEST(G729aVectors, Committed) {
    ASSERT_TRUE(fs::exists(G729A_COMMITTED_VECTORS)) << "test vectors are missing from the source tree";
    check_folder(G729A_COMMITTED_VECTORS, ".pcm", ".dec", 2510, 4010);
}

TEST(G729aVectors, Complete) {
    fs::path const folder = G729A_ALL_VECTORS;
    if (!fs::exists(folder))
        GTEST_SKIP() << "only the committed vectors were run: no " << folder
                     << " (set FXSMEDIA_G729_VECTORS to the complete set)";
    check_folder(folder, ".pcm", ".dec", 9571, 11571);
    check_folder(folder / "itu", ".IN", ".PST", 8276, 9260);
}

// Integers only, so that every machine hears the same.
struct random_source {
    uint32_t state;

    explicit random_source(uint32_t seed) : state(seed * 2654435761u + 1) {}
    uint32_t next() { return (state = state * 1664525u + 1013904223u) >> 8; }
    int32_t between(int32_t low, int32_t high) {
        return low + static_cast<int32_t>(next() % static_cast<uint32_t>(high - low + 1));
    }
};

// Noise, random and periodic squares, pulse trains, steps, near silence, resonances, each for up to 60 frames.
class extreme_signal {
public:
    explicit extreme_signal(uint32_t seed) : random(seed) {}

    sound frame() {
        if (frames_left-- == 0) {
            kind = random.between(0, 7);
            frames_left = random.between(1, 60);
            peak = random.between(0, 2) == 0 ? 32767 : random.between(0, 32767);
            period = random.between(2, 200);
            pole = random.between(-2 * 32000, 2 * 32000);
            radius = random.between(30000, 32767);
            y1 = y2 = 0;
        }
        sound pcm;
        for (int16_t& out : pcm)
            out = static_cast<int16_t>(std::clamp(sample(), -32768, 32767));
        return pcm;
    }

private:
    int32_t sample() {
        ++time;
        switch (kind) {
            case 0: return random.between(-peak - 1, peak);
            case 1: return random.between(0, 1) == 0 ? peak : -peak - 1;
            case 2: return time / period % 2 == 0 ? peak : -peak - 1;
            case 3: return time % period == 0 ? peak : 0;
            case 4: return time / 400 % 2 == 0 ? peak : 0;
            case 5: return random.between(0, period) == 0 ? random.between(-32768, 32767) : 0;
            case 6: return random.between(-1, 1);
        }
        int64_t const y = (pole * y1 - radius * y2) / 32768 + random.between(-peak, peak) / 16;
        y2 = y1;
        y1 = std::clamp<int64_t>(y, -200000, 200000);
        return static_cast<int32_t>(y1);
    }

    random_source random;
    int32_t kind = 0, frames_left = 0, peak = 0, period = 2, time = 0;
    int64_t pole = 0, radius = 0, y1 = 0, y2 = 0;
};

// FNV-1a, 64 bits, of the values in little-endian order.
struct digest {
    uint64_t value = 14695981039346656037u;

    template <typename frame>
    void add(frame const& values) {
        for (auto const each : values)
            for (size_t i = 0; i < sizeof each; ++i)
                value = (value ^ (each >> 8 * i & 0xff)) * 1099511628211u;
    }
};

// Arithmetic corners that ordinary signals miss. The digests were taken from a second build of the coder that
// clips after every single operation; that build reproduces the ITU-T's vectors, erasures included.
// Channels by turns: they share no memory.
TEST(G729aDigest, Encoders) {
    std::vector<coder> encoders(4, coder(0x55));
    std::vector<extreme_signal> signals;
    for (uint32_t seed = 1; seed <= 4; ++seed)
        signals.emplace_back(seed);
    std::vector<packed> streams[4];
    for (int i = 0; i < 2000; ++i)
        for (size_t k = 0; k < 4; ++k)
            streams[k].push_back(encoders[k].encode(signals[k].frame()));
    digest sum;
    for (auto const& stream : streams)
        for (packed const& bytes : stream)
            sum.add(bytes);
    EXPECT_EQ(sum.value, 0x3be1d3a30fb11358u);
}

// Random frames, some of them lost; every other block of 25 keeps its spectrum and its largest gains, which
// makes the synthesis overflow.
TEST(G729aDigest, DecoderWithLosses) {
    digest sum;
    random_source random(5);
    coder decoder;
    packed held = {};
    for (int i = 0; i < 6000; ++i) {
        packed bytes;
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random.next());
        if (i % 50 == 0)
            held = bytes;
        if (i % 50 < 25) {
            std::copy_n(held.begin(), 3, bytes.begin());
            bytes[9] = static_cast<uint8_t>(0x2b | (bytes[9] & 0x80));
        }
        bool const lost = random.between(0, 9) == 0;
        sum.add(decoder.decode_checked(bytes, lost));
    }
    EXPECT_EQ(sum.value, 0x545423ff92c87fc3u);
}

// A wrong parity bit changes nothing for g729a_decode_frame(), but a lot for a receiver that checks it.
TEST(G729aState, FrameDecoderIgnoresParity) {
    coder good, flipped, checking;
    int differing = 0;
    for (packed bytes : read<packed>(fs::path(G729A_COMMITTED_VECTORS) / "speech_clip36db.g729")) {
        sound const pcm = good.decode(bytes);
        bytes[3] ^= 0x20;  // bit 26: P0
        ASSERT_EQ(flipped.decode(bytes), pcm);
        differing += checking.decode_checked(bytes, false) != pcm;
    }
    EXPECT_GT(differing, 200);
}

}  // namespace
