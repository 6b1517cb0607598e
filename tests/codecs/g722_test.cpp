#include "codecs/g722.h"

#include <gtest/gtest.h>
#include <spandsp.h>
extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstring>
#include <stdexcept>

#include "tests/support/digest.h"
#include "tests/support/signals.h"

// The oracles at 16 kHz are libspandsp's encoder and libavcodec's decoder. They take and give 16 bits where our
// coder has 15: the same signal is twice as large there. The 14 bits that our lines deliver keep clear of the
// limiting of the encoder's band signals, which both lack. Codes that no encoder sends reach the limits of the
// zeros' partial sums, which both lack as well: those cases are pinned.

namespace {

signals::bytes spandsp_encode(signals::samples pcm) {
    for (std::int16_t& sample : pcm)
        sample = static_cast<std::int16_t>(2 * sample);
    g722_encode_state_t* const state = g722_encode_init(nullptr, 64000, 0);
    signals::bytes out(pcm.size() / 2);
    g722_encode(state, out.data(), pcm.data(), static_cast<int>(pcm.size()));
    g722_encode_free(state);
    return out;
}

/// libavcodec's decoder: 16 kHz and 15 bits.
signals::samples libav_decode(signals::bytes const& data) {
    auto const must = [](int result) { result < 0 ? throw std::runtime_error("libavcodec: G.722 fails") : result; };
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_ADPCM_G722));
    context->sample_rate = 16000;
    context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    must(avcodec_open2(context, nullptr, nullptr));
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    must(av_new_packet(packet, static_cast<int>(data.size())));
    std::memcpy(packet->data, data.data(), data.size());
    must(avcodec_send_packet(context, packet));
    must(avcodec_receive_frame(context, frame));
    signals::samples out(reinterpret_cast<std::int16_t const*>(frame->data[0]),
                         reinterpret_cast<std::int16_t const*>(frame->data[0]) + frame->nb_samples);
    for (std::int16_t& sample : out)
        sample = static_cast<std::int16_t>(sample >> 1);
    avcodec_free_context(&context);
    av_packet_free(&packet);
    av_frame_free(&frame);
    return out;
}

/// 16 kHz, 15 bits.
signals::samples decode_pairs(signals::bytes const& data) {
    signals::samples out(2 * data.size());
    g722::decoder().process(static_cast<int>(data.size()), data.data(), out.data());
    return out;
}

signals::bytes encode_pairs(signals::samples const& pcm) {
    signals::bytes out(pcm.size() / 2);
    g722::encoder().process(static_cast<int>(out.size()), pcm.data(), out.data());
    return out;
}

TEST(g722, encodes_like_libspandsp_and_decodes_like_libavcodec_at_16_khz) {
    std::vector<signals::bytes> streams{signals::codes(480000, 8, 1, 9)};
    for (unsigned byte = 0; byte < 256; byte++)
        streams.push_back(signals::bytes(8000, static_cast<std::uint8_t>(byte)));
    for (signals::named const& signal : signals::assortment(128000, 8191, 722)) {
        streams.push_back(encode_pairs(signal.pcm));
        ASSERT_EQ(streams.back(), spandsp_encode(signal.pcm)) << signal.name;
    }
    for (std::size_t i = 0; i < streams.size(); i++)
        ASSERT_EQ(decode_pairs(streams[i]), libav_decode(streams[i])) << i;
}

// The digests are those of a coder that follows ITU-T G.722 clauses 6.2.1 to 6.2.4 to the letter: one 16-bit operation
// after the other, each addition limited.
TEST(g722, limits_every_sum) {
    digest decoded, encoded;
    for (unsigned seed = 0; seed < 24; seed++)
        decoded.add(decode_pairs(signals::codes(60000, 8, 1 << seed % 12, seed, 1 + static_cast<int>(seed / 6))));
    for (int half_period : {1, 3, 50, 4000})
        encoded.add(encode_pairs(signals::square(40000, half_period, 32767)));
    encoded.add(encode_pairs(signals::noise(200000, 32767, 4)));
    EXPECT_EQ(decoded.value, 0x62640f69a3aa6a35u);
    EXPECT_EQ(encoded.value, 0xeda52a7d8422a272u);
}

// With the extension the lower band is the line's signal, as in libspandsp's coder at 8 kHz: the same level to the bit.
TEST(g722, the_extension_codes_as_libspandsp_at_8_khz) {
    g722_encode_state_t* const peer_encoder = g722_encode_init(nullptr, 64000, G722_SAMPLE_RATE_8000);
    g722_decode_state_t* const peer_decoder = g722_decode_init(nullptr, 64000, G722_SAMPLE_RATE_8000);
    g722 coder({.g722 = true});
    std::vector<signals::bytes> streams{signals::codes(480000, 8, 1, 9)};
    for (signals::named const& signal : signals::assortment(48000, 32767, 8)) {
        int const n = static_cast<int>(signal.pcm.size());
        signals::bytes ours(signal.pcm.size()), peers(signal.pcm.size());
        coder.encode(n, signal.pcm.data(), ours.data());
        g722_encode(peer_encoder, peers.data(), signal.pcm.data(), n);
        ASSERT_EQ(ours, peers) << signal.name;
        streams.push_back(ours);
    }
    for (signals::bytes const& data : streams) {
        int const n = static_cast<int>(data.size());
        signals::samples ours(data.size()), peers(data.size());
        coder.decode(n, ours.data(), data.data());
        g722_decode(peer_decoder, peers.data(), data.data(), n);
        ASSERT_EQ(ours, peers);
    }
    g722_encode_free(peer_encoder);
    g722_decode_free(peer_decoder);
}

double level_db(signals::samples const& pcm, double peak) {
    double power = 0;
    for (std::size_t i = pcm.size() / 4; i < pcm.size(); i++)  // behind the start of the filters
        power += pcm[i] * pcm[i] / (peak * peak / 2) / (static_cast<double>(pcm.size()) * 3 / 4);
    return 10 * std::log10(power);
}

TEST(g722, the_extension_has_the_level_of_wideband_equipment) {
    constexpr double peak = 4000;
    for (int const hz : {300, 1000, 2000, 3000}) {
        auto const sine = [&](int rate) {
            signals::samples pcm;
            for (int i = 0; i < 2 * rate; i++)
                pcm.push_back(signals::rounded(peak * std::sin(2 * std::numbers::pi * hz * i / rate)));
            return pcm;
        };
        g722 coder({.g722 = true});
        signals::samples const narrow = sine(8000);
        signals::bytes sent(narrow.size());
        signals::samples back(narrow.size()), from_peer(narrow.size());
        int const n = static_cast<int>(narrow.size());
        coder.encode(n, narrow.data(), sent.data());
        coder.decode(n, back.data(), sent.data());
        coder.decode(n, from_peer.data(), spandsp_encode(sine(16000)).data());
        EXPECT_NEAR(level_db(libav_decode(sent), peak / 2), 0, 0.1) << hz;
        EXPECT_NEAR(level_db(from_peer, 2 * peak), 0, 0.1) << hz;  // spandsp_encode() doubles
        EXPECT_NEAR(level_db(back, peak), 0, 0.1) << hz;
    }
}

TEST(g722, interpolates_and_decimates_8_khz) {
    for (signals::named const& signal : signals::assortment(48000, 32767, 8)) {
        SCOPED_TRACE(signal.name);
        signals::samples wideband;
        int previous = 0;
        for (int const sample : signal.pcm) {
            wideband.push_back(static_cast<std::int16_t>((previous + sample / 4) / 2));
            wideband.push_back(static_cast<std::int16_t>(sample / 4));
            previous = sample / 4;
        }
        int const n = static_cast<int>(signal.pcm.size());
        g722 coder;
        signals::bytes data(signal.pcm.size());
        for (int at = 0, block = 0; at < n; at += block) {  // no matter how the stream is cut
            block = std::min(n - at, block == 33 ? 80 : 33);
            coder.encode(block, signal.pcm.data() + at, data.data() + at);
            coder.encode(0, signal.pcm.data(), data.data());
        }
        ASSERT_EQ(data, spandsp_encode(wideband));

        signals::samples const pairs = libav_decode(data);
        signals::samples pcm(data.size());
        coder.decode(n, pcm.data(), data.data());
        coder.decode(0, pcm.data(), data.data());
        for (std::size_t i = 0; i < data.size(); i++)
            ASSERT_EQ(pcm[i], std::clamp((pairs[2 * i] + pairs[2 * i + 1]) / 2 * 4, -32768, 32767)) << i;
    }
}

}  // namespace
