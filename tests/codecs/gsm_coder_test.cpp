#include "codecs/gsm_coder.h"

#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

// The files in data/ are 0.6 s of a sweep, a modulated tone and noise, coded by sox in both forms and decoded by
// ffmpeg's own decoder (not libgsm):
//   sox -n -r 8000 -b 16 -c 1 in.wav synth 0.6 sine 200-3400 synth 0.6 sine amod 7 0 50
//       synth 0.6 pinknoise mix gain -n -6
//   sox in.wav -t s16 -L gsm_input.s16
//   sox -t s16 -L -r 8000 -c 1 gsm_input.s16 gsm_frames.gsm
//   sox -t s16 -L -r 8000 -c 1 gsm_input.s16 -e gsm-full-rate gsm_pairs.wav
//   ffmpeg -c:a gsm -f gsm -i gsm_frames.gsm -f s16le gsm_decoded.s16
// (-c:a gsm_ms -i gsm_pairs.wav gives the same samples).

namespace {

std::string bytes_of(str const& s) {
    return {reinterpret_cast<char const*>(s.cbuffer()), static_cast<size_t>(s.length())};
}

str str_of(std::string const& s) {
    return {reinterpret_cast<unsigned char const*>(s.data()), static_cast<int>(s.size())};
}

std::string file(char const* name) {
    std::ifstream in(std::string(FXS_TEST_DATA) + "/" + name, std::ios::binary);
    std::string const content((std::istreambuf_iterator<char>(in)), {});
    EXPECT_FALSE(content.empty()) << "missing: " << name;
    return content;
}

// Samples in host byte order from a file in little-endian order, or back.
std::string swap_if_big_endian(std::string pcm) {
    if constexpr (std::endian::native == std::endian::big)
        for (size_t i = 0; i + 1 < pcm.size(); i += 2)
            std::swap(pcm[i], pcm[i + 1]);
    return pcm;
}

std::string pcm_file(char const* name) {
    return swap_if_big_endian(file(name));
}

std::string pairs_of_wav() {
    return file("gsm_pairs.wav").substr(60, 15 * 65);
}

// Widths of a frame's parameters in the order of both layouts (GSM 06.10 table 1.1).
std::vector<unsigned> const& widths() {
    static std::vector<unsigned> const all = [] {
        std::vector<unsigned> w = {6, 6, 5, 5, 4, 4, 3, 3};
        for (int subframe = 0; subframe < 4; subframe++) {
            w.insert(w.end(), {7, 2, 2, 6});
            w.insert(w.end(), 13, 3);
        }
        return w;
    }();
    return all;
}

// A pair, least significant bits first, as two plain frames, most significant bits first behind the magic.
std::string plain_frames_of_pair(std::string const& pair) {
    std::string frames(66, 0);
    size_t from = 0, to = 0;
    auto const put = [&](unsigned value, unsigned width) {
        for (unsigned bit = width; bit-- > 0; to++)
            frames[to / 8] |= static_cast<char>((value >> bit & 1) << (7 - to % 8));
    };
    for (int half = 0; half < 2; half++) {
        put(0xD, 4);
        for (unsigned const width : widths()) {
            unsigned value = 0;
            for (unsigned bit = 0; bit < width; bit++, from++)
                value |= (static_cast<unsigned char>(pair[from / 8]) >> (from % 8) & 1u) << bit;
            put(value, width);
        }
    }
    return frames;
}

std::string random_bytes(std::mt19937& random, size_t n) {
    std::string bytes(n, 0);
    for (char& c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

}  // namespace

TEST(gsm_coder, encodes_as_sox) {
    gsm_coder coder;
    EXPECT_EQ(bytes_of(coder.encode(str_of(pcm_file("gsm_input.s16")))), file("gsm_frames.gsm"));
}

TEST(gsm_coder, decodes_both_forms_as_ffmpeg) {
    std::string const expected = pcm_file("gsm_decoded.s16");
    gsm_coder frames, pairs;
    EXPECT_EQ(bytes_of(frames.decode(str_of(file("gsm_frames.gsm")))), expected);
    EXPECT_EQ(bytes_of(pairs.decode(str_of(pairs_of_wav()))), expected);
}

// The same packet by packet, with the form changing in the middle of the stream.
TEST(gsm_coder, form_may_change_between_payloads) {
    std::string const frames = file("gsm_frames.gsm"), pairs = pairs_of_wav();
    gsm_coder coder;
    std::string pcm;
    for (size_t pair = 0; pair < 15; pair++) {
        if (pair % 3 == 1)
            pcm += bytes_of(coder.decode(str_of(pairs.substr(65 * pair, 65))));
        else if (pair % 3 == 2)
            pcm += bytes_of(coder.decode(str_of(frames.substr(66 * pair, 66))));
        else
            for (size_t frame = 2 * pair; frame < 2 * pair + 2; frame++)
                pcm += bytes_of(coder.decode(str_of(frames.substr(33 * frame, 33))));
    }
    EXPECT_EQ(pcm, pcm_file("gsm_decoded.s16"));
}

// Any bytes in any form decode as a coder that only ever saw the same parameters in plain frames.
TEST(gsm_coder, random_payloads_against_plain_frames) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    gsm_coder coder, plain;
    for (int round = 0; round < 3000; round++) {
        size_t const length = random() % 400;
        std::string payload = random_bytes(random, length), same;
        if (length % 33 == 0) {
            for (size_t at = 0; at < length; at += 33)
                payload[at] = static_cast<char>(0xD0 | (payload[at] & 0xF));
            same = payload;
        } else {
            for (size_t at = 0; at + 65 <= length; at += 65)
                same += plain_frames_of_pair(payload.substr(at, 65));
        }
        std::string const pcm = bytes_of(coder.decode(str_of(payload)));
        ASSERT_EQ(pcm.size(), same.size() / 33 * 320) << length;
        ASSERT_EQ(pcm, bytes_of(plain.decode(str_of(same)))) << "round " << round << " length " << length;
    }
}

// A frame without the magic is silent and leaves the state alone.
TEST(gsm_coder, plain_frame_without_magic) {
    std::string const frames = file("gsm_frames.gsm"), expected = pcm_file("gsm_decoded.s16");
    gsm_coder coder;
    EXPECT_EQ(bytes_of(coder.decode(str_of(frames.substr(0, 330) + std::string(33, '\x5C')))),
              expected.substr(0, 3200) + std::string(320, 0));
    EXPECT_EQ(bytes_of(coder.decode(str_of(frames.substr(330)))), expected.substr(3200));
}

// However the PCM is cut, odd pieces included, the frames are the same.
TEST(gsm_coder, remainder_is_carried) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::string const input = pcm_file("gsm_input.s16"), expected = file("gsm_frames.gsm");
    for (int round = 0; round < 50; round++) {
        gsm_coder coder;
        std::string coded;
        size_t const longest = 1 + random() % 1000;
        for (size_t at = 0, n; at < input.size(); at += n) {
            n = std::min(random() % (longest + 1), input.size() - at);
            coded += bytes_of(coder.encode(str_of(input.substr(at, n))));
            ASSERT_EQ(coded.size(), (at + n) / 320 * 33);
        }
        ASSERT_EQ(coded, expected) << "pieces up to " << longest;
    }
}

TEST(gsm_coder, resets_keep_the_remainder) {
    std::string const input = pcm_file("gsm_input.s16"), frames = file("gsm_frames.gsm");
    for (bool whole : {false, true}) {
        gsm_coder coder;
        coder.encode(str_of(input.substr(0, 3200)));
        std::string const decoded = bytes_of(coder.decode(str_of(frames)));
        coder.encode(str_of(input.substr(0, 200)));
        whole ? coder.clear() : coder.reset_encoder();
        EXPECT_EQ(bytes_of(coder.encode(str_of(input.substr(200)))), frames);
        EXPECT_EQ(bytes_of(coder.decode(str_of(frames))) == decoded, whole);
    }
    gsm_coder coder;
    coder.encode(str_of(input.substr(0, 200)));
    coder.drop_remainder();
    EXPECT_EQ(bytes_of(coder.encode(str_of(input))), frames);
}
