// The judge of bench/impairment on degradations that are known: what is worse must be further away, and delays, losses
// and clicks must be found as large as they were made.

#include "bench/impairment/judge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>

#include "bench/impairment/delay_track.h"
#include "bench/impairment/distance.h"
#include "codecs/codec.h"

namespace {

constexpr int length_s = 6, length = length_s * sample_rate, packet = 20 * samples_a_ms;

sound const& speech() {
    static sound const pcm = make_speech(5, length_s);
    return pcm;
}

double distance_of(sound const& heard) {
    return spectral_distance_db(speech(), heard, delay_track(speech(), heard));
}

sound with_noise(int snr_db) {
    std::mt19937 random(1);
    sound x = speech();
    double const rms = std::sqrt(energy(x, 0, length) / length) * std::pow(10, -snr_db / 20.0);
    for (std::int16_t& sample : x)  // uniform: its root mean square is its limit / sqrt(3)
        sample = static_cast<std::int16_t>(std::clamp(
            sample + rms * std::numbers::sqrt3 * (static_cast<double>(random()) / (1u << 31) - 1), -32767.0, 32767.0));
    return x;
}

sound coded(int number) {
    codec sender, receiver;
    sound heard;
    for (int at = 0; at < length; at += packet) {
        auto const* const pcm = reinterpret_cast<unsigned char const*>(speech().data() + at);
        str const decoded = receiver.decode(number, sender.encode(number, str(pcm, 2 * packet)));
        heard.resize(heard.size() + decoded.length() / 2);
        std::memcpy(heard.data() + heard.size() - decoded.length() / 2, decoded.cbuffer(), decoded.length());
    }
    return heard;
}

/// Packets are silent, every `one_of`-th.
sound with_losses(int one_of) {
    sound x = speech();
    for (int at = 0; at < length; at += one_of * packet)
        std::fill_n(x.begin() + at, packet, std::int16_t{0});
    return x;
}

/// 10 ms put in by cross-fading, so often that this much is put in.
sound stretched(int percent) {
    constexpr int put_in = 10 * samples_a_ms;
    sound const& x = speech();
    sound longer;
    for (int at = 0; at + put_in < length; at++) {
        longer.push_back(x[static_cast<std::size_t>(at)]);
        if (at % (put_in * 100 / percent) != put_in)
            continue;
        for (int i = 1; i <= put_in; i++)
            longer.push_back(static_cast<std::int16_t>((x[static_cast<std::size_t>(at + i)] * (put_in - i) +
                                                        x[static_cast<std::size_t>(at + i - put_in)] * i) /
                                                       put_in));
    }
    longer.resize(length);
    return longer;
}

sound with_clicks(int count) {
    sound x = speech();
    for (int i = 0; i < count; i++)
        x[static_cast<std::size_t>((i + 1) * length / (count + 2))] = 20000;
    return x;
}

/// Heard at t: what was said `delay(t)` samples before.
sound delayed(std::function<int(int)> const& delay) {
    sound x(length);
    for (int at = 0; at < length; at++)
        if (int const then = at - delay(at); then >= 0 && then < length)
            x[static_cast<std::size_t>(at)] = speech()[static_cast<std::size_t>(then)];
    return x;
}

TEST(Judge, WorseIsFurtherAway) {
    struct {
        char const* kind;
        sound (*degrade)(int);
        std::vector<int> degrees;  ///< from good to bad
        double least, most;        ///< of the first and the last
    } const rows[] = {
        {"noise, dB", with_noise, {60, 40, 30, 20, 10}, 0.01, 20},
        {"codec", coded, {codec::linear, codec::mu_law, codec::g726_32}, 0, 3},
        {"codec", coded, {codec::linear, codec::mu_law, codec::gsm_full_rate}, 0, 3},
        {"losses, one of", with_losses, {100, 33, 10}, 0.05, 5},
        {"stretched, %", stretched, {1, 5}, 0.001, 2},
        {"clicks", with_clicks, {0, 1, 5, 25}, 0, 2},
    };
    for (auto const& row : rows) {
        std::vector<double> distances;
        for (int const degree : row.degrees)
            distances.push_back(distance_of(row.degrade(degree)));
        for (std::size_t i = 1; i < distances.size(); i++)
            EXPECT_GT(distances[i], 1.2 * distances[i - 1]) << row.kind << " " << row.degrees[i];
        EXPECT_GE(distances.front(), row.least) << row.kind;
        EXPECT_LE(distances.back(), row.most) << row.kind;
    }
}

TEST(Judge, CountsWhatIsLost) {
    for (int const one_of : {100, 33, 10}) {
        verdict const found = judge(speech(), with_losses(one_of), 0);
        constexpr double two_blocks = 20.0 / length_s;
        int lost = 0;
        for (int at = 0; at < length; at += one_of * packet)
            for (int const part : {at, at + packet / 2})
                lost += spoken(speech(), part, packet / 2);
        EXPECT_NEAR(found.silent_ms, 10.0 * lost / length_s, two_blocks) << one_of;
        EXPECT_NEAR(found.altered_ms, found.silent_ms, two_blocks) << one_of;
        EXPECT_EQ(found.delay_ms, 0);
    }
    for (int const number : {codec::linear, codec::mu_law})
        EXPECT_EQ(judge(speech(), coded(number), 0).altered_ms, 0);
}

TEST(Judge, FindsDelays) {
    struct {
        char const* course;
        std::function<int(int)> delay;  ///< samples
    } const rows[] = {
        {"none", [](int) { return 0; }},
        {"37 ms", [](int) { return 37 * samples_a_ms; }},
        {"1.5 s", [](int) { return 1500 * samples_a_ms; }},
        {"a step up and one down",
         [](int at) {
             return (at < 3 * sample_rate ? 30 : at < 5 * sample_rate ? 230 : 45) * samples_a_ms;
         }},
        {"200 ppm slow", [](int at) { return 400 + at / 5000; }},
        {"2000 ppm fast", [](int at) { return 400 - at / 500; }},
    };
    for (auto const& row : rows) {
        sound const heard = delayed(row.delay);
        delay_track const track(speech(), heard);
        std::vector<int> const found = track.second_ms(0);
        for (int second = 2; second < length_s; second++)
            EXPECT_NEAR(found[static_cast<std::size_t>(second)],
                        row.delay(second * sample_rate + sample_rate / 2) / samples_a_ms, 1)
                << row.course << ", second " << second;
        EXPECT_LT(spectral_distance_db(speech(), heard, track), 1) << row.course;
    }
    EXPECT_NEAR(judge(speech(), stretched(5), 0).second_ms.back(), 5.5 * 50 / 1.05, 10);
    for (int const number : {codec::g722_64, codec::g729, codec::gsm_full_rate})
        EXPECT_LE(judge(speech(), coded(number), 0).delay_95_ms, 6)
            << "codec " << number << ", whose noise moves nothing";
}

TEST(Judge, MeasuresClicks) {
    sound const sine = make_sine(2);
    constexpr double bend_of_sine = 8000 * 0.0972;  // a (2 pi f / rate)^2
    for (int const height : {500, 2000, 8000}) {
        sound heard = sine;
        auto const at = std::min_element(heard.begin() + sample_rate, heard.end(),
                                         [](int a, int b) { return std::abs(a) < std::abs(b); });
        *at = static_cast<std::int16_t>(*at + height);
        EXPECT_NEAR(click_db(sine, heard), 20 * std::log10(2 * height / bend_of_sine), 1.5) << height;
    }
    EXPECT_EQ(click_db(sine, sine), 0);
}

}  // namespace
