#include "codecs/codec.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "codecs/g711.h"

namespace {

constexpr bool with_g729 = FXSMEDIA_G729;

std::string bytes_of(str const& s) {
    return {reinterpret_cast<char const*>(s.cbuffer()), static_cast<size_t>(s.length())};
}

str str_of(std::string const& s) {
    return {reinterpret_cast<unsigned char const*>(s.data()), static_cast<int>(s.size())};
}

// The same bytes at an odd address: a sub-string.
str odd_str_of(std::string const& s) {
    return str_of('\x5C' + s).substr(1);
}

unsigned char const* data_of(std::string const& s) {
    return reinterpret_cast<unsigned char const*>(s.data());
}

std::vector<short> samples_of(std::string const& pcm) {
    std::vector<short> samples(pcm.size() / 2);
    if (!samples.empty())
        std::memcpy(samples.data(), pcm.data(), samples.size() * 2);
    return samples;
}

std::string pcm_of(std::vector<short> const& samples) {
    return {reinterpret_cast<char const*>(samples.data()), samples.size() * 2};
}

// A loud chirp with some noise, the same at every call.
std::string chirp(int samples) {
    std::mt19937 noise(1);
    std::vector<short> pcm;
    for (int n = 0; n < samples; n++)
        pcm.push_back(static_cast<short>(20000 * std::sin(0.05 * n + 0.0001 * n * n) +
                                         static_cast<double>(noise() % 2000)));
    return pcm_of(pcm);
}

std::string random_bytes(std::mt19937& random, size_t n) {
    std::string bytes(n, 0);
    for (char& c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

unsigned below(unsigned limit, std::mt19937& random) {
    return static_cast<unsigned>(random() % limit);
}

// Every number with a coder of its own, and some that mean mu-law.
constexpr int numbers[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 127, 255, 256 + 2, INT_MAX, -1, -4, INT_MIN};
constexpr int with_state[] = {codec::g729, codec::gsm_full_rate, codec::g722_64, codec::g726_32};

bool is_mu_law(int number) {
    return number < 0 || number > 7 || number == 1 || (number == 3 && !with_g729);
}

int encoded_size(int number, int bytes) {
    switch (is_mu_law(number) || number == 7 ? 1 : number) {
        case 0: return bytes;
        case 3: return bytes / 160 * 10;
        case 4: return bytes / 320 * 33;
        case 6: return bytes / 2 / 2;
        default: return bytes / 2;
    }
}

int decoded_size(int number, int bytes) {  // not for events
    switch (is_mu_law(number) ? 1 : number) {
        case 0: return bytes;
        case 3: return bytes / 10 * 160;
        case 4: return bytes % 33 == 0 ? bytes / 33 * 320 : bytes / 65 * 640;
        case 6: return bytes * 4;
        default: return bytes * 2;
    }
}

std::string event(int digit, int volume, int duration) {
    return {static_cast<char>(digit), static_cast<char>(volume), static_cast<char>(duration >> 8),
            static_cast<char>(duration)};
}

int played(codec& c, int digit, int duration) {  // samples
    return c.decode(codec::telephone_event, str_of(event(digit, 10, duration))).length() / 2;
}

}  // namespace

TEST(codec, sizes_for_every_length) {
    std::mt19937 random(2);
    for (int number : numbers) {
        codec c;
        for (int length = 0; length <= 700; length++) {
            SCOPED_TRACE(testing::Message() << "number " << number << " length " << length);
            std::string const bytes = random_bytes(random, static_cast<size_t>(length));
            c.encode(codec::linear, str());  // drops what GSM kept
            ASSERT_EQ(c.encode(number, str_of(bytes)).length(), encoded_size(number, length));
            if (length <= 200 && number != codec::telephone_event) {
                ASSERT_EQ(c.decode(number, str_of(bytes)).length(), decoded_size(number, length));
            }
        }
    }
}

TEST(codec, dispatches_to_the_coders) {
    std::string const pcm = chirp(1600);
    for (int number : numbers) {
        if (!is_mu_law(number) && number > 2 && number != 7)
            continue;
        SCOPED_TRACE(number);
        codec c;
        std::string codes(pcm.size() / 2, 0), back(pcm.size(), 0);
        bool const a_law = number == codec::a_law;
        auto const* in = data_of(pcm);
        auto* const out = reinterpret_cast<unsigned char*>(codes.data());
        (a_law ? g711::encode_a_law : g711::encode_mu_law)(in, 1600, out);
        auto* const decoded = reinterpret_cast<unsigned char*>(back.data());
        (a_law ? g711::decode_a_law : g711::decode_mu_law)(out, 1600, decoded);
        EXPECT_EQ(bytes_of(c.encode(number, str_of(pcm))), number == 0 ? pcm : codes);
        if (number != codec::telephone_event) {
            EXPECT_EQ(bytes_of(c.decode(number, str_of(number == 0 ? pcm : codes))),
                      number == 0 ? pcm : back);
        }
    }
}

TEST(codec, dispatches_g722_and_g726) {
    std::string const pcm = chirp(1601);
    std::vector<short> const samples = samples_of(pcm);

    g722 wide;
    std::string codes(1601, 0);
    wide.encode(1601, samples.data(), reinterpret_cast<unsigned char*>(codes.data()));
    std::vector<short> back(1601);
    wide.decode(1601, back.data(), data_of(codes));
    codec c;
    EXPECT_EQ(bytes_of(c.encode(codec::g722_64, str_of(pcm))), codes);
    EXPECT_EQ(bytes_of(c.decode(codec::g722_64, str_of(codes))), pcm_of(back));

    g726 encoder, decoder;
    codes.clear();
    back.clear();
    for (size_t i = 0; i + 1 < samples.size(); i += 2) {
        unsigned const low = encoder.encode(static_cast<unsigned short>(samples[i]));
        unsigned const high = encoder.encode(static_cast<unsigned short>(samples[i + 1]));
        codes += static_cast<char>(high * 16 + low);
        back.push_back(static_cast<short>(decoder.decode(low)));
        back.push_back(static_cast<short>(decoder.decode(high)));
    }
    EXPECT_EQ(bytes_of(c.encode(codec::g726_32, str_of(pcm))), codes);
    EXPECT_EQ(bytes_of(c.decode(codec::g726_32, str_of(codes))), pcm_of(back));
}

#if FXSMEDIA_G729
TEST(codec, dispatches_g729) {
    std::string const pcm = chirp(1650);  // 20 frames and 50 samples that are dropped
    std::vector<short> const samples = samples_of(pcm);
    g729a_state encoder, decoder;
    g729a_init(encoder);
    g729a_init(decoder);
    std::string codes(200, 0);
    std::vector<short> back(1600);
    for (size_t i = 0; i < 20; i++) {
        auto* const frame = reinterpret_cast<unsigned char*>(codes.data()) + 10 * i;
        g729a_encode_frame(encoder, samples.data() + 80 * i, frame);
        g729a_decode_frame(decoder, frame, back.data() + 80 * i);
    }
    codec c;
    EXPECT_EQ(bytes_of(c.encode(codec::g729, str_of(pcm))), codes);
    EXPECT_EQ(bytes_of(c.decode(codec::g729, str_of(codes + "tail"))), pcm_of(back));
}
#endif

TEST(codec, bytes_may_lie_at_odd_addresses) {
    std::string const pcm = chirp(960);
    for (int number : numbers) {
        codec even, odd;
        for (size_t at = 0; at < pcm.size(); at += 320) {
            std::string const codes = bytes_of(even.encode(number, str_of(pcm.substr(at, 320))));
            EXPECT_EQ(bytes_of(odd.encode(number, odd_str_of(pcm.substr(at, 320)))), codes) << number;
            EXPECT_EQ(bytes_of(odd.decode(number, odd_str_of(codes))),
                      bytes_of(even.decode(number, str_of(codes))))
                << number;
        }
    }
}

// GSM keeps its remainder over GSM and G.722 only; decoding and resets do not touch it.
TEST(codec, gsm_remainder) {
    std::string const pcm = chirp(160), first = pcm.substr(0, 200), rest = pcm.substr(200);
    codec fresh;
    std::string const frame = bytes_of(fresh.encode(codec::gsm_full_rate, str_of(pcm)));
    for (int number : numbers) {
        codec c;
        EXPECT_TRUE(c.encode(codec::gsm_full_rate, str_of(first)).empty());
        for (int decoded : numbers)
            c.decode(decoded, str_of(frame));
        c.reset(number);
        c.clear();
        c.encode(number, str());
        bool const kept = number == codec::gsm_full_rate || number == codec::g722_64;
        EXPECT_EQ(bytes_of(c.encode(codec::gsm_full_rate, str_of(rest))), kept ? frame : "") << number;
    }
}

// What each operation restarts, seen from the next packet: a fresh coder or one that goes on.
TEST(codec, resets) {
    struct {
        char const* name;
        void (*run)(codec&);
        bool encoders[4], decoders[4];  // restarted? in the order of with_state
    } const operations[] = {
        {"nothing", [](codec&) {}, {}, {}},
        {"clear", [](codec& c) { c.clear(); }, {true, true}, {true, true}},
        {"reset 3", [](codec& c) { c.reset(3); }, {true}, {}},
        {"reset 4", [](codec& c) { c.reset(4); }, {false, true}, {}},
        {"other resets",
         [](codec& c) {
             for (int n : {-1, 0, 1, 2, 5, 6, 7, 8})
                 c.reset(n);
         },
         {},
         {}},
        {"other codecs",
         [](codec& c) {
             for (int n : {0, 1, 2, 7, 8, -1}) {
                 c.encode(n, str_of(chirp(320)));
                 c.decode(n, str_of(chirp(320)));
             }
         },
         {},
         {}},
    };
    std::string const loud = chirp(3200), next = chirp(4800).substr(6400);
    for (unsigned i = 0; i < 4; i++) {
        int const number = with_state[i];
        if (is_mu_law(number))
            continue;
        codec once;
        std::string const codes = bytes_of(once.encode(number, str_of(loud)));
        std::string const going_on = bytes_of(once.encode(number, str_of(next)));
        once.decode(number, str_of(codes));
        std::string const sound = bytes_of(once.decode(number, str_of(going_on)));
        codec fresh;
        std::string const restarted = bytes_of(fresh.encode(number, str_of(next)));
        std::string const fresh_sound = bytes_of(fresh.decode(number, str_of(going_on)));
        ASSERT_NE(restarted, going_on);
        ASSERT_NE(sound, fresh_sound);
        for (auto const& operation : operations) {
            SCOPED_TRACE(testing::Message() << operation.name << ", number " << number);
            codec c;
            c.encode(number, str_of(loud));
            c.decode(number, str_of(codes));
            operation.run(c);
            EXPECT_EQ(bytes_of(c.encode(number, str_of(next))), operation.encoders[i] ? restarted : going_on);
            EXPECT_EQ(bytes_of(c.decode(number, str_of(going_on))),
                      operation.decoders[i] ? fresh_sound : sound);
        }
    }
}

TEST(codec, event_durations) {
    struct {
        char const* name;
        std::vector<std::pair<int, int>> steps;  // duration, samples played
    } const cases[] = {
        {"regular", {{160, 160}, {320, 160}, {480, 160}, {480, 0}, {480, 0}}},
        {"whole blocks", {{1, 80}, {81, 80}, {82, 80}, {162, 80}, {243, 160}}},
        {"a late start catches up", {{800, 640}, {800, 160}, {800, 0}}},
        {"the limit", {{640, 640}, {640, 0}, {1281, 640}, {1281, 80}}},
        {"a new event starts lower", {{1600, 640}, {1600, 640}, {1600, 320}, {160, 640}, {1600, 640}}},
        {"the largest", {{0, 0}, {0xFFFF, 640}, {640, 0}}},
    };
    for (auto const& c : cases)
        for (int digit : {0, 11}) {
            SCOPED_TRACE(c.name);
            codec coder;
            for (auto const& [duration, samples] : c.steps)
                EXPECT_EQ(played(coder, digit, duration), samples) << duration;
        }
}

TEST(codec, event_state) {
    codec c;
    EXPECT_EQ(played(c, 12, 160), 0);  // no digit, but its duration counts
    EXPECT_EQ(played(c, 1, 320), 160);
    for (int length : {0, 1, 3, 5, 160}) {
        str const payload = str_of(event(1, 10, 4000) + std::string(200, 0)).leftstr(length);
        EXPECT_TRUE(c.decode(codec::telephone_event, payload).empty()) << length;
    }
    EXPECT_EQ(played(c, 1, 480), 160);
    for (int number : numbers)
        if (number != codec::telephone_event) {
            EXPECT_EQ(played(c, 255, 0), 0);
            played(c, 1, 160);
            c.decode(number, str());
            EXPECT_EQ(played(c, 1, 480), 480) << number;
        }
    c.encode(codec::mu_law, str());
    c.reset(codec::telephone_event);
    EXPECT_EQ(played(c, 1, 640), 160);
    c.clear();
    EXPECT_EQ(played(c, 1, 320), 320);
}

// The tone is the generator's, at the event's volume (of which the end bit and the reserved bit are no part),
// and goes on where the packet before stopped.
TEST(codec, event_tone) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    codec c;
    dtmf_synthesizer tone;
    unsigned last = 0;
    for (int round = 0; round < 5000; round++) {
        int const digit = static_cast<int>(random() % 14);
        for (unsigned packets = below(6, random), duration = below(300, random); packets > 0; packets--) {
            int const volume = static_cast<int>(random() % 256);
            duration += below(3, random) ? 160 : below(2000, random);
            std::string expected;
            unsigned const difference = duration - last;
            unsigned const step = difference < 641 ? difference : 640;
            last += step;
            while (digit < 12 && expected.size() < 2 * step)
                expected += bytes_of(tone.get_samples(digit, static_cast<unsigned>(volume % 64)));
            str const payload = str_of(event(digit, volume, static_cast<int>(duration)));
            ASSERT_EQ(bytes_of(c.decode(codec::telephone_event, payload)), expected) << round;
        }
        if (random() % 4 == 0) {
            c.decode(codec::mu_law, str());
            last = 0;
        }
        if (random() % 16 == 0) {
            c.clear();
            tone.clear();
            last = 0;
        }
    }
}

// Any bytes, any number, in any order: sizes stay right, and the pool does not grow once it is warm.
TEST(codec, random_bytes_in_random_order) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    codec c;
    std::uint64_t warm = 0;
    for (int round = 0; round < 20000; round++) {
        int const number = numbers[random() % std::size(numbers)];
        size_t const length = random() % 500;
        str const bytes = str_of(random_bytes(random, length));
        str const pcm = c.decode(number, bytes);
        bool const no_event = number != codec::telephone_event;
        ASSERT_TRUE(!no_event || pcm.length() == decoded_size(number, bytes.length())) << number;
        ASSERT_TRUE(no_event || bytes.length() == 4 || pcm.empty());
        str const codes = c.encode(number, bytes);
        ASSERT_TRUE(number == codec::gsm_full_rate || codes.length() == encoded_size(number, bytes.length()));
        if (round == 10000)
            warm = str::allocated_size;
    }
    EXPECT_EQ(str::allocated_size, warm);
}
