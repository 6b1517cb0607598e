#include "codecs/codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/bytes.h"

namespace {

// Every number with a coder of its own, and some that mean mu-law.
constexpr int numbers[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 127, 255, 256 + 2, INT_MAX, -1, -4, INT_MIN};

bool is_mu_law(int number) {
    return number < 0 || number > 7 || number == 1 || (number == 3 && !FXSMEDIA_G729);
}

std::string encode(codec& c, int number, std::string const& pcm) {
    return to_string(c.encode(number, to_str(pcm)));
}

std::string decode(codec& c, int number, std::string const& payload) {
    return to_string(c.decode(number, to_str(payload)));
}

// Loud noise in squares of growing length, the same at every call.
std::string noise(int samples) {
    std::mt19937 random(1);
    std::string pcm;
    for (int n = 0; n < samples; n++) {
        auto const sample =
            static_cast<short>((n / (1 + n / 256) % 2 ? 20000 : -20000) + static_cast<int>(random() % 8000));
        pcm.append(reinterpret_cast<char const*>(&sample), 2);
    }
    return pcm;
}

// FNV-1a of bytes or, so that host order does not matter, of samples.
template <typename value>
std::uint64_t digest(std::string const& bytes) {
    std::vector<value> values(bytes.size() / sizeof(value));
    bytes.copy(reinterpret_cast<char*>(values.data()), bytes.size());
    std::uint64_t sum = 14695981039346656037u;
    for (value const each : values)
        sum = (sum ^ static_cast<std::uint64_t>(each & 0xFFFF)) * 1099511628211u;
    return sum;
}

std::string event(int digit, unsigned volume, int duration) {
    return {static_cast<char>(digit), static_cast<char>(volume), static_cast<char>(duration >> 8),
            static_cast<char>(duration)};
}

size_t played(codec& c, int digit, int duration) {  // samples
    return decode(c, codec::telephone_event, event(digit, 10, duration)).size() / 2;
}

}  // namespace

// Any bytes of any length, the numbers by turns in one codec; the pool does not grow once it is warm.
TEST(codec, sizes_for_every_length) {
    std::mt19937 random(2);
    codec c;
    std::uint64_t warm = 0;
    for (int i = 0; i < 2 * 701; i++) {
        int const length = i % 701;
        warm = length == 0 ? str::allocated_size : warm;
        for (int number : numbers) {
            std::string bytes(static_cast<size_t>(length), 0);
            std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
            c.encode(codec::linear, str());  // drops what GSM kept
            int coded = length / 2, decoded = 2 * length;
            switch (is_mu_law(number) ? 1 : number) {
                case 0: coded = decoded = length; break;
                case 3: coded = length / 160 * 10, decoded = length / 10 * 160; break;
                case 4:
                    coded = length / 320 * 33;
                    decoded = length % 33 == 0 ? length / 33 * 320 : length / 65 * 640;
                    break;
                case 6: coded = length / 4, decoded = 4 * length; break;
            }
            ASSERT_EQ(c.encode(number, to_str(bytes)).length(), coded) << number << ", " << length;
            int const got = c.decode(number, to_str(bytes)).length();
            bool const is_event = number == codec::telephone_event;
            ASSERT_EQ(got, is_event ? (length == 4 ? got : 0) : decoded) << number << ", " << length;
        }
    }
    EXPECT_EQ(str::allocated_size, warm);
}

// The digests are those of the coders alone.
TEST(codec, dispatches_to_the_coders_at_even_and_odd_addresses) {
    struct {
        std::uint64_t codes, pcm;
    } const expected[] = {
        {0x2692ef5b1d65ac89u, 0x2692ef5b1d65ac89u}, {0xe91ac60362f5d4a2u, 0x6a24f456e704a1adu},
        {0xd9666aedb6f2bd02u, 0x6a24f456e704a1adu}, {0x34dfb698d7a9d9b2u, 0xfdf25d82e49b74ceu},
        {0xfcf942bb6f69da6au, 0x3c72583999f949bdu}, {0x72f5d2e03e1174afu, 0xfdfd2fc1d1f77939u},
        {0xf19491821d74db26u, 0x67a0868e04a75961u}, {0xe91ac60362f5d4a2u, 0},
    };
    std::string const pcm = noise(1650);  // 20 frames of G.729 and 50 samples that are dropped
    for (int number : numbers)
        for (int odd : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "number " << number << ", odd " << odd);
            std::string const room(static_cast<size_t>(odd), 0);
            codec c;
            std::string const codes = to_string(c.encode(number, to_str(room + pcm).substr(odd)));
            auto const& row = expected[is_mu_law(number) ? 1 : number];
            EXPECT_EQ(number == 0 ? digest<short>(codes) : digest<unsigned char>(codes), row.codes);
            if (number != codec::telephone_event) {
                EXPECT_EQ(digest<short>(to_string(c.decode(number, to_str(room + codes).substr(odd)))),
                          row.pcm);
            }
        }
}

// GSM keeps its remainder over GSM and G.722 only; decoding and resets do not touch it.
TEST(codec, gsm_remainder) {
    std::string const pcm = noise(160);
    codec fresh;
    std::string const frame = encode(fresh, codec::gsm_full_rate, pcm);
    for (int number : numbers) {
        codec c;
        EXPECT_EQ(encode(c, codec::gsm_full_rate, pcm.substr(0, 200)), "");
        for (int decoded : numbers)
            decode(c, decoded, frame);
        c.reset(number);
        c.clear();
        c.encode(number, str());
        bool const kept = number == codec::gsm_full_rate || number == codec::g722_64;
        EXPECT_EQ(encode(c, codec::gsm_full_rate, pcm.substr(200)), kept ? frame : "") << number;
    }
}

// What each operation restarts, seen from the next packet: a fresh coder or one that goes on.
TEST(codec, resets) {
    struct {
        void (*run)(codec&);
        std::string encoders, decoders;  // restarted
    } const operations[] = {
        {[](codec&) {}, "", ""},
        {[](codec& c) { c.clear(); }, "34", "34"},
        {[](codec& c) { c.reset(3); }, "3", ""},
        {[](codec& c) { c.reset(4); }, "4", ""},
        {[](codec& c) {
             for (int n : {-1, 0, 1, 2, 5, 6, 7, 8}) {
                 c.reset(n);
                 encode(c, n == 5 || n == 6 ? 0 : n, noise(320));
                 decode(c, n == 5 || n == 6 ? 0 : n, noise(320));
             }
         },
         "", ""},
    };
    std::string const loud = noise(3200), next = noise(4800).substr(6400);
    for (int number : {3, 4, 5, 6})
        for (auto const& operation : operations) {
            if (is_mu_law(number))
                continue;
            SCOPED_TRACE(testing::Message() << "number " << number << ", row " << &operation - operations);
            char const digit = static_cast<char>('0' + number);
            codec c, once, fresh;
            std::string const codes = encode(once, number, loud), going_on = encode(once, number, next);
            decode(once, number, codes);
            encode(c, number, loud);
            decode(c, number, codes);
            operation.run(c);
            bool const encoder = operation.encoders.find(digit) != std::string::npos;
            EXPECT_EQ(encode(c, number, next), encoder ? encode(fresh, number, next) : going_on);
            bool const decoder = operation.decoders.find(digit) != std::string::npos;
            EXPECT_EQ(decode(c, number, going_on), decode(decoder ? fresh : once, number, going_on));
        }
}

// The tone is the generator's, at the event's volume (of which the end bit and the reserved bit are no part),
// and goes on where the packet before stopped.
TEST(codec, event_durations) {
    std::vector<std::pair<int, size_t>> const cases[] = {
        // duration, samples played
        {{160, 160}, {320, 160}, {480, 160}, {480, 0}, {480, 0}},          // regular
        {{1, 80}, {81, 80}, {82, 80}, {162, 80}, {243, 160}},              // whole blocks
        {{800, 640}, {800, 160}, {800, 0}},                                // a late start catches up
        {{640, 640}, {640, 0}, {1281, 640}, {1281, 80}},                   // the limit
        {{1600, 640}, {1600, 640}, {1600, 320}, {160, 640}, {1600, 640}},  // a new event starts lower
        {{0, 0}, {0xFFFF, 640}, {640, 0}},                                 // the largest
    };
    unsigned volume = 0;
    for (auto const& steps : cases)
        for (int digit : {0, 11}) {
            codec c;
            dtmf_synthesizer tone;
            for (auto const& [duration, samples] : steps) {
                volume = (5 * volume + 131) % 256;
                std::string expected;
                while (expected.size() < 2 * samples)
                    expected += to_string(tone.get_samples(digit, volume % 64));
                EXPECT_EQ(decode(c, codec::telephone_event, event(digit, volume, duration)), expected)
                    << "case " << &steps - cases << ", duration " << duration << ", volume " << volume;
            }
        }
}

TEST(codec, event_state) {
    codec c;
    EXPECT_EQ(played(c, 12, 160), 0u);  // no digit, but its duration counts
    EXPECT_EQ(played(c, 1, 320), 160u);
    for (size_t length : {0u, 1u, 3u, 5u, 160u})
        EXPECT_EQ(decode(c, 7, (event(1, 10, 4000) + std::string(200, 0)).substr(0, length)), "") << length;
    EXPECT_EQ(played(c, 1, 480), 160u);
    for (int number : numbers)
        if (number != codec::telephone_event) {
            EXPECT_EQ(played(c, 255, 0), 0u);
            played(c, 1, 160);
            c.decode(number, str());
            EXPECT_EQ(played(c, 1, 480), 480u) << number;
        }
    c.encode(codec::mu_law, str());
    c.reset(codec::telephone_event);
    EXPECT_EQ(played(c, 1, 640), 160u);
    c.clear();
    EXPECT_EQ(played(c, 1, 320), 320u);
}
