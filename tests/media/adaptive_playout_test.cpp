#include "media/playout.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <numbers>
#include <vector>

#include "dsp/dtmf_recognition.h"
#include "lib/pcm.h"
#include "tests/support/seed.h"

namespace {

using signal = std::function<double(double)>;  ///< of the sender's time in samples
constexpr int start = 800000;                  // time of day, ticks
constexpr int rate = 8000, block = pcm::block_samples, peak = 8000;

/// A network and a sender.
struct course {
    char const* name;
    int loss_percent = 0, burst_packets = 1;
    int jitter_ms = 0;  ///< uniform, of each packet by itself
    int stall_ms = 0;   ///< from 10 s on, once ...
    int every_ms = 0;   ///< ... or again and again
    int ppm = 0;        ///< the sender's clock against the line
    int packet_samples = 160;
    int codec = codec::linear;
    bool captures = true;  ///< the line
    // ---- what may come of it
    int longest_delay_ms = 10;      ///< in the last 10 s, packet time not counted
    int shortest_gap_samples = 16;  ///< silence in a row that is noticed as a gap
    int most_gaps = 0;
};

double sine(double t) {
    return peak * std::sin(2 * std::numbers::pi * 397 * t / rate);
}
/// Tells the time: -8000 to 8000 in 20 s.
double ramp(double t) {
    return t / 10 - peak;
}

/// What a line hears of the course in 20 s, block by block.
class call {
public:
    static constexpr int seconds = 20;

    call(course const& chosen_course, signal const& chosen_signal, dice const& seed)
        : c(chosen_course), says(chosen_signal), random(seed) {
        heard.reserve(seconds * rate);
        for (int number = 0; time_of(number) < seconds * rate; number++)
            send(number);
        for (int now = 0; now < seconds * rate; now += block) {
            if (now == seconds / 2 * rate + 8 * c.stall_ms + block)
                allocated = str::allocated_size;
            play_block(now);
        }
        allocated = str::allocated_size - allocated;
        made_up = static_cast<int>(player.get_totals().concealed);
    }

    std::vector<int> heard;
    std::uint64_t allocated = 0;   ///< in the second half, when what a stall held up has come
    int missing = 0, made_up = 0;  ///< samples

private:
    int time_of(int number) const {
        return static_cast<int>((number + 1LL) * c.packet_samples * 1000000 / (1000000 + c.ppm));
    }
    bool lost() {
        if (c.loss_percent == 0)
            return false;
        in_burst = in_burst ? random.below(c.burst_packets) != 0
                            : random.below(1000) * c.burst_packets * (100 - c.loss_percent) < 1000 * c.loss_percent;
        return in_burst;
    }
    void send(int number) {
        str pcm;
        for (int i = 0; i < c.packet_samples; i++) {
            auto const sample = static_cast<std::int16_t>(std::lround(says(number * c.packet_samples + i)));
            pcm.append(reinterpret_cast<unsigned char const*>(&sample), 2);
        }
        str const payload = far_end.encode(c.codec, pcm);
        int arrival = time_of(number) + random.below(8 * c.jitter_ms + 1);
        int const since = c.every_ms > 0 ? (arrival - 10 * rate) % (8 * c.every_ms) : arrival - 10 * rate;
        if (arrival >= 10 * rate && since < 8 * c.stall_ms)
            arrival += 8 * c.stall_ms - since;
        if (lost())
            missing += c.packet_samples;
        else
            arrivals.emplace(arrival, number_and_payload{number, payload});
    }
    void play_block(int now) {
        if (c.captures)
            player.pass_block(static_cast<std::uint32_t>(start + now));
        for (int until = now; until <= now + block; until += 8) {
            for (; !arrivals.empty() && arrivals.begin()->first < until; play())
                arrive(arrivals.begin()->first);
            player.settle(received, static_cast<std::uint32_t>(start + until));
            play();
        }
        if (queue.empty())
            heard.insert(heard.end(), block, 0);
        for (int i = 0; i < block && !queue.empty(); i++) {
            heard.push_back(queue.front());
            queue.erase(queue.begin());
        }
    }
    void play() {
        while (player.available(received)) {
            playout::events told;
            str const got = player.next(received, near_end, told);
            ASSERT_EQ(got.length(), pcm::block_bytes);
            for (int i = 0; i < block; i++)
                queue.push_back(pcm::load_sample(got.cbuffer(), i));
        }
    }
    void arrive(int when) {
        auto const [number, payload] = arrivals.begin()->second;
        arrivals.erase(arrivals.begin());
        player.put(received, static_cast<std::uint32_t>(1000 + number), number == 0,
                   {c.codec, rtimestamp((start + when) * 125000LL), false, payload,
                    static_cast<std::uint32_t>(number * c.packet_samples)});
    }

    struct number_and_payload {
        int number;
        str payload;
    };
    course const c;
    signal says;
    dice random;
    bool in_burst = false;
    std::multimap<int, number_and_payload> arrivals;
    codec far_end, near_end;
    jitter_buffer received;
    extension_set const chosen{.playout = true};
    playout player{chosen};
    std::vector<int> queue;
};

/// How much more sharply it bends than the sine, at the sharpest, from `from` on.
double sharpest_bend(std::vector<int> const& x, std::size_t from) {
    double const w = 2 * std::numbers::pi * 397 / rate;
    int most = 0;
    for (std::size_t i = from; i < x.size(); i++)
        most = std::max(most, std::abs(x[i] - 2 * x[i - 1] + x[i - 2]));
    return most / (peak * w * w);
}

int gaps(std::vector<int> const& x, std::size_t from, int shortest) {
    int found = 0, zeros = 0;
    for (std::size_t i = from; i < x.size(); i++) {
        zeros = std::abs(x[i]) < peak / 100 ? zeros + 1 : 0;
        found += zeros == shortest;
    }
    return found;
}

/// Which three quarters of the ramp keep in the last 10 s; the rest may be made up.
int delay_ms(std::vector<int> const& x, course const& c) {
    std::vector<int> all;
    for (std::size_t i = 10 * rate; i + 1 < x.size(); i += block) {
        double const said = (x[i] + peak) * 10.0 * 1e6 / (1e6 + c.ppm);
        all.push_back(static_cast<int>(std::lround(static_cast<double>(i) - said - c.packet_samples)) / 8);
    }
    std::sort(all.begin(), all.end());
    return all[all.size() * 3 / 4];
}

TEST(adaptive_playout, keeps_delay_and_speech_on_bad_networks) {
    course const table[] = {
        {.name = "clean"},
        {.name = "loss", .loss_percent = 5},
        {.name = "much loss", .loss_percent = 10, .longest_delay_ms = 20},
        {.name = "little jitter", .jitter_ms = 20, .longest_delay_ms = 30},
        {.name = "much jitter", .jitter_ms = 60, .longest_delay_ms = 75},
        {.name = "jitter and loss", .loss_percent = 3, .jitter_ms = 40, .longest_delay_ms = 70},
        {.name = "short stall", .stall_ms = 60, .longest_delay_ms = 50},
        {.name = "long stall", .stall_ms = 1000, .longest_delay_ms = 60, .most_gaps = 4},
        {.name = "spikes", .stall_ms = 100, .every_ms = 2000, .longest_delay_ms = 110, .most_gaps = 2},
        {.name = "line that captures nothing", .loss_percent = 1, .captures = false, .longest_delay_ms = 30},
        {.name = "fast sender", .ppm = 200, .longest_delay_ms = 30},
        {.name = "slow sender", .ppm = -200, .longest_delay_ms = 30, .most_gaps = 1},
        {.name = "much too fast", .ppm = 20000, .longest_delay_ms = 60, .most_gaps = 1},
        {.name = "25 ms", .packet_samples = 200, .longest_delay_ms = 20},
        {.name = "45 ms, loss", .loss_percent = 3, .packet_samples = 360, .longest_delay_ms = 30, .most_gaps = 2},
        {.name = "3 ms", .packet_samples = 24, .longest_delay_ms = 40},
    };
    seed_range{1, 2}.roll([&](dice const& random) {
        for (course const& c : table) {
            call const tone(c, sine, random);
            EXPECT_LE(sharpest_bend(tone.heard, rate / 2), c.most_gaps > 0 ? 5 : 1.6) << c.name;
            EXPECT_LE(gaps(tone.heard, rate / 2, c.shortest_gap_samples), c.most_gaps) << c.name;
            EXPECT_EQ(tone.allocated, 0U) << c.name;
            EXPECT_LE(delay_ms(call(c, ramp, random).heard, c), c.longest_delay_ms) << c.name;
        }
    });
}

TEST(adaptive_playout, makes_up_lost_speech_in_every_codec) {
    for (int const number :
         {codec::mu_law, codec::a_law, codec::g729, codec::gsm_full_rate, codec::g722_64, codec::g726_32}) {
        call const tone({.name = "", .loss_percent = 5, .codec = number}, sine, dice(1));
        int quiet = 0;
        for (std::size_t i = rate / 2; i + 320 < tone.heard.size(); i += 320) {
            double energy = 0;
            for (std::size_t k = i; k < i + 320; k++)
                energy += static_cast<double>(tone.heard[k]) * tone.heard[k];
            quiet += energy < 16.0 * peak * peak;  // 10 dB below the sine
        }
        // G.729's predictors need several frames after a loss.
        EXPECT_LE(quiet, number == codec::g729 ? 30 : 2) << "codec " << number;
        EXPECT_LT(sharpest_bend(tone.heard, rate / 2), 4) << "codec " << number;
        EXPECT_NEAR(tone.made_up, tone.missing, 2 * tone.missing / 100 + 320) << "codec " << number;
    }
}

/// Twelve digits of 60 ms in band while the delay is being moved.
TEST(adaptive_playout, digits_in_band_stay_digits) {
    char const keys[] = "123456789*0#";
    auto const digits = [&](double t) {
        constexpr double rows[] = {697, 770, 852, 941}, columns[] = {1209, 1336, 1477};
        int const number = static_cast<int>(t - 8 * rate) / (rate / 10), at = static_cast<int>(t) % (rate / 10);
        if (t < 8 * rate || number >= 12 || at >= 6 * rate / 100)
            return 0.0;
        auto const tone = [&](double hertz) { return peak / 3 * std::sin(2 * std::numbers::pi * hertz * t / rate); };
        return tone(rows[number / 3]) + tone(columns[number % 3]);
    };
    seed_range{1, 2}.roll([&](dice const& random) {
        for (course const& c : {course{.name = "jitter", .jitter_ms = 60, .codec = codec::mu_law},
                                course{.name = "fast sender", .ppm = 20000, .codec = codec::mu_law},
                                course{.name = "slow sender", .ppm = -20000, .codec = codec::mu_law}}) {
            str pcm;
            for (int const sample : call(c, digits, random).heard) {
                auto const s = static_cast<std::int16_t>(sample);
                pcm.append(reinterpret_cast<unsigned char const*>(&s), sizeof s);
            }
            dtmf_recognition detector;
            detector.add_samples(pcm);
            std::string heard;
            for (int i = 0; i < detector.get_detected().length(); i++)
                if (std::strchr(keys, detector.get_detected()[i]))
                    heard += static_cast<char>(detector.get_detected()[i]);
            EXPECT_EQ(heard, keys) << c.name;
        }
    });
}

/// Of a fast sender's dial tone, two seconds long, nothing is left out: it obeys the recursion of its two tones.
TEST(adaptive_playout, a_call_progress_tone_stays_whole) {
    double const low = 2 * std::numbers::pi * 350 / rate, high = 2 * std::numbers::pi * 440 / rate;
    auto const dial_tone = [&](double t) {
        return t < 8 * rate || t > 10 * rate ? sine(t) : peak / 2 * (std::sin(low * t) + std::sin(high * t));
    };
    std::vector<int> const x = call({.name = "", .ppm = 20000}, dial_tone, dice(1)).heard;
    double const a = 2 * (std::cos(low) + std::cos(high)), b = -2 - 4 * std::cos(low) * std::cos(high);
    double most = 0;
    for (std::size_t i = 81 * rate / 10; i < 97 * rate / 10; i++)
        most = std::max(most, std::abs(x[i] + x[i - 4] - a * (x[i - 1] + x[i - 3]) - b * x[i - 2]));
    EXPECT_LE(most, 8) << "more than rounding";
}

TEST(adaptive_playout, an_announcement_is_played_as_it_is) {
    extension_set const chosen{.playout = true};
    playout player(chosen);
    jitter_buffer received;
    codec decoder;
    dice random(1);
    str noise, heard;
    for (int i = 0; i < 100 * pcm::block_bytes; i++)
        noise += static_cast<unsigned char>(random.word());
    player.add_announcement(noise);
    for (unsigned tick = 0; tick < 110; tick++) {
        player.pass_block(tick * block);
        player.put(received, tick + 1, false,
                   {codec::linear, rtimestamp(tick * rtimestamp::ms2ticks(10)), false, str('\7', pcm::block_bytes),
                    tick * block});
        playout::events told;
        while (player.available(received) && heard.length() < noise.length())
            heard += player.next(received, decoder, told);
    }
    EXPECT_TRUE(heard == noise);
}

/// Between packets of silence, and after a hold-up that is being caught up with.
TEST(adaptive_playout, an_event_is_heard_for_its_duration_in_one_piece) {
    extension_set const chosen{.playout = true};
    playout player(chosen);
    jitter_buffer received;
    codec decoder;
    int first = -1, last = -1, tone_blocks = 0, blocks = 0;
    for (int number = 0; number < 100; number++) {
        bool const event = number >= 52 && number < 60;
        int const duration = std::min(number - 51, 5) * 160;  // five steps, then the end three times more
        str const payload =
            event ? str(5, 10, static_cast<unsigned char>(duration >> 8), static_cast<unsigned char>(duration & 255))
                  : str('\0', 2 * 160);
        int const arrival_ms = number >= 40 && number < 50 ? 1000 : 20 * number;
        player.put(received, static_cast<std::uint32_t>(number + 1), number == 52,
                   {event ? codec::telephone_event : codec::linear, rtimestamp(rtimestamp::ms2ticks(arrival_ms)), false,
                    payload, static_cast<std::uint32_t>(160 * (event ? 52 : number))});
        for (int half = 0; half < 2; half++) {
            player.pass_block(static_cast<std::uint32_t>(2 * number + half) * block);
            playout::events told;
            for (; player.available(received); blocks++) {
                str const heard = player.next(received, decoder, told);
                bool const sounds = heard != str('\0', pcm::block_bytes);
                tone_blocks += sounds;
                last = sounds ? blocks : last;
                first = sounds && first < 0 ? blocks : first;
            }
        }
    }
    EXPECT_GE(tone_blocks, 10);
    EXPECT_LE(tone_blocks, 11) << "it may begin within a block";
    EXPECT_EQ(last - first + 1, tone_blocks);
}

}  // namespace
