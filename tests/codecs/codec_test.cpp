#include "codecs/codec.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <fstream>
#include <iterator>
#include <optional>

#include "tests/support/bytes.h"
#include "tests/support/signals.h"

namespace {

// Every number with a coder of its own, and some that mean mu-law.
constexpr int numbers[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 127, 255, 256 + 2, INT_MAX, -1, -4, INT_MIN};

int coder_of(int number) {
    return number < 0 || number > 7 || (number == 3 && !FXSMEDIA_G729) ? 1 : number;
}

std::string encode(codec& c, int number, std::string const& pcm) {
    return to_string(c.encode(number, to_str(pcm)));
}

std::string decode(codec& c, int number, std::string const& payload) {
    return to_string(c.decode(number, to_str(payload)));
}

std::string noise(int samples, unsigned seed = 1) {
    signals::samples const pcm = signals::noise(samples, 32767, seed);
    return {reinterpret_cast<char const*>(pcm.data()), 2 * pcm.size()};
}

std::string event(int digit, unsigned volume, int duration) {
    return {static_cast<char>(digit), static_cast<char>(volume), static_cast<char>(duration >> 8),
            static_cast<char>(duration)};
}

// The files in data/ are 0.6 s of a sweep, a modulated tone and noise, coded by sox in both forms and decoded by
// ffmpeg's own decoder (not libgsm):
//   sox -n -r 8000 -b 16 -c 1 in.wav synth 0.6 sine 200-3400 synth 0.6 sine amod 7 0 50
//       synth 0.6 pinknoise mix gain -n -6
//   sox in.wav -t s16 -L gsm_input.s16
//   sox -t s16 -L -r 8000 -c 1 gsm_input.s16 gsm_frames.gsm
//   sox -t s16 -L -r 8000 -c 1 gsm_input.s16 -e gsm-full-rate gsm_pairs.wav
//   ffmpeg -c:a gsm -f gsm -i gsm_frames.gsm -f s16le gsm_decoded.s16
// (-c:a gsm_ms -i gsm_pairs.wav gives the same samples).

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

struct gsm : testing::Test {
    std::string const input = file("gsm_input.s16"), frames = file("gsm_frames.gsm"),
                      pairs = file("gsm_pairs.wav").substr(60, 15 * 65), decoded = file("gsm_decoded.s16");
    codec coder;
};

}  // namespace

// Any bytes of any length at any address by turns: each coder gives what one gives that is alone in its codec.
// (fuzz_codec has the right amounts.) All that reaches it from outside are clear(), reset() and, for what GSM and
// events keep, other numbers. What is done once more does not ask the pool for more.
TEST(codec, coders_do_not_disturb_each_other) {
    std::string const pcm = noise(2000);
    std::uint64_t warm = 0;
    for (int pass : {0, 1}) {
        std::mt19937 random(3);
        std::optional<codec> encoders[8], decoders[8];
        for (int i = 0; i < 8; i++)
            encoders[i].emplace(), decoders[i].emplace();
        codec together;
        std::string waiting;  // PCM that does not fill a GSM frame yet
        for (int step = 0; step < 8000; step++) {
            unsigned const operation = random() % 64, any = random() % (4 * std::size(numbers));
            int const number = any < 16 ? numbers[any] : static_cast<int>(2 + any % 6), n = coder_of(number);
            std::string some = pcm.substr(random() % 3000, random() % 701);
            SCOPED_TRACE(testing::Message() << "step " << step << ", number " << number << ", " << some.size());
            if (operation < 2) {
                together.clear();
                for (auto* each : {&encoders[3], &encoders[4], &decoders[3], &decoders[4], &decoders[7]})
                    each->emplace();
            } else if (operation < 6) {
                together.reset(number);
                if (n == 3 || n == 4)
                    encoders[n].emplace();
            } else if (operation < 34) {
                std::string const coded = to_string(together.encode(number, to_str("x" + some).substr(1)));
                waiting = n == 4 ? waiting + some : n == 5 ? waiting : "";
                if (n == 4)
                    some = waiting.substr(0, waiting.size() / 320 * 320), waiting.erase(0, some.size());
                ASSERT_EQ(coded, encode(*encoders[n], n, some));
            } else {
                if (n == codec::telephone_event)
                    some = event(static_cast<int>(random() % 14), random() % 256, static_cast<int>(random() % 700));
                else
                    decode(*decoders[7], codec::linear, "");
                ASSERT_EQ(to_string(together.decode(number, to_str("x" + some).substr(1))),
                          decode(*decoders[n], n, some));
            }
        }
        warm = pass == 0 ? str::allocated_size : warm;
    }
    EXPECT_EQ(str::allocated_size, warm);
}

// The tone is the generator's, at the event's volume (of which the end bit and the reserved bit are no part), and goes
// on where the packet before stopped. An event that is no digit is silent but counts. fuzz/fuzz_codec.cpp has the
// durations.
TEST(codec, events_sound_as_the_generator) {
    std::mt19937 random(4);
    codec c;
    dtmf_synthesizer tone;
    for (int duration = 80, digit = 0; duration < 65536; duration += 80) {
        if (random() % 4 == 0)
            digit = static_cast<int>(random() % 14);
        unsigned const volume = random() % 256;
        std::string const heard = decode(c, codec::telephone_event, event(digit, volume, duration));
        ASSERT_EQ(heard, digit < 12 ? to_string(tone.get_samples(digit, volume % 64)) : "") << duration;
    }
}

// However the PCM is cut, odd pieces included, the frames are the same.
TEST_F(gsm, encodes_as_sox) {
    std::mt19937 random(1);
    for (size_t longest = 0; longest < 1000; longest += 37) {
        codec fresh;
        std::string coded;
        for (size_t at = 0, n; at < input.size(); at += n) {
            n = longest == 0 ? input.size() : random() % (longest + 1);
            coded += encode(fresh, 4, input.substr(at, n));
        }
        ASSERT_EQ(coded, frames) << "pieces up to " << longest;
    }
}

TEST_F(gsm, decodes_as_ffmpeg_though_the_form_changes) {
    std::string pcm;
    for (size_t pair = 0; pair < 6; pair += 3)
        for (auto const& payload : {frames.substr(66 * pair, 33), frames.substr(66 * pair + 33, 33),
                                    pairs.substr(65 * pair + 65, 65), frames.substr(66 * pair + 132, 66)})
            pcm += decode(coder, 4, payload);
    pcm += decode(coder, 4, pairs.substr(65 * 6, 65 * 4) + "no pair");
    EXPECT_EQ(pcm + decode(coder, 4, frames.substr(66 * 10)), decoded);
}

// A frame without the magic is silent and leaves the state alone.
TEST_F(gsm, plain_frame_without_magic) {
    EXPECT_EQ(decode(coder, 4, frames.substr(0, 330) + std::string(33, '\x5C')),
              decoded.substr(0, 3200) + std::string(320, 0));
    EXPECT_EQ(decode(coder, 4, frames.substr(330)), decoded.substr(3200));
}
