#include "codecs/gsm_coder.h"

#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>

#include "tests/support/bytes.h"

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

// Samples come from little-endian order into the host's.
std::string file(std::string const& name) {
    std::ifstream in(FXS_TEST_DATA "/" + name, std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(in)), {});
    EXPECT_FALSE(content.empty()) << "missing: " << name;
    if (std::endian::native == std::endian::big && name.ends_with(".s16"))
        for (size_t i = 0; i + 1 < content.size(); i += 2)
            std::swap(content[i], content[i + 1]);
    return content;
}

std::string encode(gsm_coder& coder, std::string const& pcm) {
    return to_string(coder.encode(to_str(pcm)));
}

std::string decode(gsm_coder& coder, std::string const& payload) {
    return to_string(coder.decode(to_str(payload)));
}

class gsm : public testing::Test {
protected:
    std::string const input = file("gsm_input.s16"), frames = file("gsm_frames.gsm"),
                      pairs = file("gsm_pairs.wav").substr(60, 15 * 65), decoded = file("gsm_decoded.s16");
    gsm_coder coder;
};

}  // namespace

// However the PCM is cut, odd pieces included, the frames are the same.
TEST_F(gsm, encodes_as_sox) {
    std::mt19937 random(1);
    for (size_t longest = 0; longest < 1000; longest += 37) {
        gsm_coder fresh;
        std::string coded;
        for (size_t at = 0, n; at < input.size(); at += n) {
            n = longest == 0 ? input.size() : random() % (longest + 1);
            coded += encode(fresh, input.substr(at, n));
        }
        ASSERT_EQ(coded, frames) << "pieces up to " << longest;
    }
}

TEST_F(gsm, decodes_as_ffmpeg_though_the_form_changes) {
    std::string pcm;
    for (size_t pair = 0; pair < 6; pair += 3)
        for (auto const& payload : {frames.substr(66 * pair, 33), frames.substr(66 * pair + 33, 33),
                                    pairs.substr(65 * pair + 65, 65), frames.substr(66 * pair + 132, 66)})
            pcm += decode(coder, payload);
    pcm += decode(coder, pairs.substr(65 * 6, 65 * 4) + "no pair");
    EXPECT_EQ(pcm + decode(coder, frames.substr(66 * 10)), decoded);
}

// A frame without the magic is silent and leaves the state alone.
TEST_F(gsm, plain_frame_without_magic) {
    EXPECT_EQ(decode(coder, frames.substr(0, 330) + std::string(33, '\x5C')),
              decoded.substr(0, 3200) + std::string(320, 0));
    EXPECT_EQ(decode(coder, frames.substr(330)), decoded.substr(3200));
}
