#include <gtest/gtest.h>
extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "lib/pcm.h"
#include "media/playout.h"
#include "media/reception.h"
#include "tests/support/seed.h"

namespace {

using sound = std::vector<std::int16_t>;
constexpr int rate = 8000, block = 80, packet = 160, noise_type = 13;

str payload_of(int level, std::vector<int> const& reflections) {
    str told(static_cast<char>(level), 1);
    for (int const k : reflections)
        told += static_cast<unsigned char>(127 + k);
    return told;
}

/// libavcodec's noise, ten seconds.
sound peer_noise(str const& told) {
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_COMFORT_NOISE));
    context->sample_rate = rate;
    context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    AVPacket* sent = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    if (avcodec_open2(context, nullptr, nullptr) < 0 || av_new_packet(sent, told.length()) < 0)
        throw std::runtime_error("libavcodec: no comfort noise");
    std::memcpy(sent->data, told.cbuffer(), static_cast<unsigned>(told.length()));
    sound heard;
    while (heard.size() < 10 * rate) {
        if (avcodec_send_packet(context, sent) < 0 || avcodec_receive_frame(context, frame) < 0)
            throw std::runtime_error("libavcodec: no noise");
        auto const* const samples = reinterpret_cast<std::int16_t const*>(frame->data[0]);
        heard.insert(heard.end(), samples, samples + frame->nb_samples);
    }
    avcodec_free_context(&context);
    av_packet_free(&sent);
    av_frame_free(&frame);
    return heard;
}

/// A second of speech, such a packet, and nothing for ten seconds.
sound our_noise(str const& told) {
    extension_set const chosen{.playout = true};
    playout player(chosen);
    jitter_buffer received;
    codec decoder;
    sound heard;
    for (int tick = 0; tick < 1100; tick++) {
        player.pass_block(static_cast<std::uint32_t>(tick * block));
        if (tick <= 100 && tick % 2 == 0)
            player.put(received, static_cast<std::uint32_t>(tick / 2 + 1), false,
                       {tick == 100 ? codec::comfort_noise : codec::linear, rtimestamp(tick * rtimestamp::ms2ticks(10)),
                        false, tick == 100 ? told : str('\x11', 2 * packet), static_cast<std::uint32_t>(tick * block)});
        player.settle(received, static_cast<std::uint32_t>(tick * block + 70));
        for (playout::events got; player.available(received);) {
            str const given = player.next(received, decoder, got);
            for (int i = 0; i < block; i++)
                heard.push_back(pcm::load_sample(given.cbuffer(), i));
        }
    }
    return {heard.begin() + 10000, heard.end()};
}

double correlation(sound const& x, std::size_t lag) {
    double sum = 0;
    for (std::size_t i = lag; i < x.size(); i++)
        sum += double{static_cast<double>(x[i])} * x[i - lag];
    return sum / static_cast<double>(x.size());
}

TEST(comfort_noise, has_the_level_and_the_spectrum_that_are_told) {
    std::vector<int> const spectra[] = {
        {}, {-90}, {60, 40}, {-110, 50, -30, 20, 10, -5, 15, -20, 5, 10}, {100, -60, 30}};
    for (int const level : {30, 45, 60})
        for (std::vector<int> const& reflections : spectra) {
            str const told = payload_of(level, reflections);
            sound const ours = our_noise(told), peers = peer_noise(told);
            ASSERT_GT(ours.size(), 9U * rate);
            EXPECT_NEAR(10 * std::log10(correlation(ours, 0) / (32768.0 * 32768)), -level, 1) << reflections.size();
            for (std::size_t lag = 1; lag <= 12; lag++)
                EXPECT_NEAR(correlation(ours, lag) / correlation(ours, 0),
                            correlation(peers, lag) / correlation(peers, 0), 0.05)
                    << "level " << level << ", " << reflections.size() << " coefficients, lag " << lag;
        }
}

/// Whatever a stranger sends.
TEST(comfort_noise, never_rings) {
    seed_range{1, 200}.roll([](dice random) {
        str told;
        for (int i = random.below(30); i > 0; i--)
            told += static_cast<unsigned char>(random.chance(30) ? 255 * random.below(2) : random.below(256));
        noise_generator noise;
        noise.set(noise_shape::of_payload(told));
        double power = 0;
        for (int i = 0; i < rate; i++)
            power += std::pow(noise.next(), 2) / rate;
        EXPECT_LE(power, 4.0 * 32768 * 32768);
    });
}

TEST(comfort_noise, is_taken_with_the_extension_only) {
    for (bool const extended : {false, true}) {
        extensions.playout = extended;
        reception tested;
        tested.set_payload_map(str('\xFF', 128));
        str const packet_of_noise =
            str('\x80', 1) + str(static_cast<char>(noise_type), 1) + str('\1', 10) + payload_of(50, {});
        EXPECT_EQ(tested.receive(packet_of_noise, {}, 0).accepted, extended);
    }
    extensions.playout = false;
}

}  // namespace
