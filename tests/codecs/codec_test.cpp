#include "codecs/codec.h"

#include <gtest/gtest.h>

#include <climits>
#include <optional>

#include "tests/support/bytes.h"
#include "tests/support/digest.h"
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

// Of bytes or, so that host order does not matter, of samples.
template <typename value>
std::uint64_t digest_of(std::string const& bytes) {
    std::vector<value> values(bytes.size() / sizeof(value));
    bytes.copy(reinterpret_cast<char*>(values.data()), bytes.size());
    digest sum;
    sum.add(values);
    return sum.value;
}

std::string event(int digit, unsigned volume, int duration) {
    return {static_cast<char>(digit), static_cast<char>(volume), static_cast<char>(duration >> 8),
            static_cast<char>(duration)};
}

}  // namespace

// The digests are those of the coders alone.
TEST(codec, dispatches_to_the_coders_at_even_and_odd_addresses) {
    struct {
        std::uint64_t codes, pcm;
    } const expected[] = {
        {0xe661cf4472b7498eu, 0xe661cf4472b7498eu}, {0x97e514b0ca610a3du, 0x32841013e5921f03u},
        {0xf6a96a98ad79573bu, 0x3829772918b63e43u}, {0x5d886fb32f9523e4u, 0x9af7f2deefd7766fu},
        {0xe3d60a1e39dc1f8au, 0x40081708ba8c3523u}, {0x8784aa2d907778fdu, 0x8cafc3505c215adbu},
        {0xa82a96527304754fu, 0x95ed0a6a254e56bfu}, {0x97e514b0ca610a3du, digest().value},
    };
    std::string const pcm = noise(1650);  // 20 frames of G.729 and 50 samples that are dropped
    for (int number : numbers)
        for (int odd : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "number " << number << ", odd " << odd);
            std::string const room(static_cast<size_t>(odd), 0);
            codec c;
            std::string const codes = to_string(c.encode(number, to_str(room + pcm).substr(odd)));
            auto const& row = expected[coder_of(number)];
            EXPECT_EQ(number == 0 ? digest_of<short>(codes) : digest_of<unsigned char>(codes), row.codes);
            std::string const back = to_string(c.decode(number, to_str(room + codes).substr(odd)));
            EXPECT_EQ(digest_of<short>(number == codec::telephone_event ? "" : back), row.pcm);
        }
}

// Any bytes of any length by turns: each coder gives what one gives that is alone in its codec, in the right amount.
// All that reaches it from outside are clear(), reset() and, for what GSM and events keep, other numbers. What is done
// once more does not ask the pool for more.
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
            size_t const length = some.size();
            SCOPED_TRACE(testing::Message() << "step " << step << ", number " << number << ", " << length);
            if (operation < 2) {
                together.clear();
                for (auto* each : {&encoders[3], &encoders[4], &decoders[3], &decoders[4], &decoders[7]})
                    each->emplace();
            } else if (operation < 6) {
                together.reset(number);
                if (n == 3 || n == 4)
                    encoders[n].emplace();
            } else if (operation < 34) {
                std::string const coded = encode(together, number, some);
                waiting = n == 4 ? waiting + some : n == 5 ? waiting : "";
                if (n == 4)
                    some = waiting.substr(0, waiting.size() / 320 * 320), waiting.erase(0, some.size());
                size_t const sizes[] = {
                    length,     length / 2, length / 2, length / 160 * 10, some.size() / 320 * 33,
                    length / 2, length / 4, length / 2};
                ASSERT_EQ(coded.size(), sizes[n]);
                ASSERT_EQ(coded, encode(*encoders[n], n, some));
            } else if (n == codec::telephone_event) {
                some =
                    event(static_cast<int>(random() % 14), random() % 256, static_cast<int>(random() % 700));
                ASSERT_EQ(decode(together, number, some), decode(*decoders[n], n, some));
            } else {
                std::string const decoded = decode(together, number, some);
                decode(*decoders[7], codec::linear, "");
                size_t const gsm = length % 33 == 0 ? length / 33 * 320 : length / 65 * 640;
                size_t const sizes[] = {length, 2 * length, 2 * length, length / 10 * 160,
                                        gsm,    2 * length, 4 * length};
                ASSERT_EQ(decoded.size(), sizes[n]);
                ASSERT_EQ(decoded, decode(*decoders[n], n, some));
            }
        }
        warm = pass == 0 ? str::allocated_size : warm;
    }
    EXPECT_EQ(str::allocated_size, warm);
}

// The tone is the generator's, at the event's volume (of which the end bit and the reserved bit are no part),
// and goes on where the packet before stopped. An event that is no digit is silent but counts; what is no event, or
// a packet of another codec, is no step.
TEST(codec, event_durations) {
    constexpr int other = -1;  // not an event: the audio of another codec
    std::vector<std::pair<int, size_t>> const cases[] = {
        // duration, samples played
        {{160, 160}, {320, 160}, {480, 160}, {480, 0}, {480, 0}},          // regular
        {{1, 80}, {81, 80}, {82, 80}, {162, 80}, {243, 160}},              // whole blocks
        {{800, 640}, {800, 160}, {800, 0}},                                // a late start catches up
        {{640, 640}, {640, 0}, {1281, 640}, {1281, 80}},                   // the limit
        {{1600, 640}, {1600, 640}, {1600, 320}, {160, 640}, {1600, 640}},  // a new event starts lower
        {{0, 0}, {0xFFFF, 640}, {640, 0}},                                 // the largest
        {{320, 320}, {480, 160}, {other, 0}, {480, 480}},                  // forgotten
    };
    unsigned volume = 0;
    for (auto const& steps : cases)
        for (int first : {0, 11, 12, 255}) {
            codec c;
            dtmf_synthesizer tone;
            int digit = first;
            for (auto const& [duration, samples] : steps) {
                SCOPED_TRACE(testing::Message() << "case " << &steps - cases << ", duration " << duration);
                volume = (5 * volume + 131) % 256;
                std::string const packet = event(digit, volume, duration);
                for (size_t length : {0u, 1u, 3u, 5u, 160u})
                    EXPECT_EQ(decode(c, 7, (packet + std::string(200, 0)).substr(0, length)), "") << length;
                std::string expected;
                while (digit < 12 && expected.size() < 2 * samples)
                    expected += to_string(tone.get_samples(digit, volume % 64));
                EXPECT_EQ(decode(c, duration == other ? 1 : 7, duration == other ? "" : packet), expected);
                digit %= 12;
            }
        }
}
