#include "bench/codec_peers.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <gsm.h>
#include <spandsp.h>
extern "C" {
#include <libavcodec/avcodec.h>
}

#include "codecs/codec.h"

namespace {

using codec_peers::entries;
using signals::bytes;
using signals::samples;
using stopwatch::contestant;

/// A library's coder: one call for one frame each way.
struct frame_coder {
    std::string name;
    std::size_t frame_samples;
    std::size_t frame_bytes;
    std::function<void(std::int16_t const* pcm, std::uint8_t* payload)> encode;
    std::function<void(std::uint8_t const* payload, std::int16_t* pcm)> decode;
};

/// rate: samples of `pcm` in 10 ms
void add_frame_coder(entries& to, frame_coder const& coder, samples const& pcm, std::size_t rate) {
    std::size_t const frames = pcm.size() / coder.frame_samples;
    double const blocks = static_cast<double>(frames * coder.frame_samples) / static_cast<double>(rate);
    auto payload = std::make_shared<bytes>(frames * coder.frame_bytes);
    auto decoded = std::make_shared<samples>(frames * coder.frame_samples);
    to.encoders.push_back({coder.name,
                           [=, &pcm] {
                               for (std::size_t i = 0; i < frames; i++)
                                   coder.encode(&pcm[i * coder.frame_samples], payload->data() + i * coder.frame_bytes);
                           },
                           blocks});
    to.encoders.back().work();
    to.decoders.push_back({coder.name,
                           [=] {
                               for (std::size_t i = 0; i < frames; i++)
                                   coder.decode(payload->data() + i * coder.frame_bytes,
                                                decoded->data() + i * coder.frame_samples);
                           },
                           blocks});
}

constexpr std::size_t narrow = 80;  // samples in 10 ms at 8 kHz
constexpr std::size_t wide_rate = 160;

void add_libgsm(entries& to, samples const& pcm) {
    gsm const encoder = gsm_create();
    gsm const decoder = gsm_create();
    add_frame_coder(
        to,
        {"libgsm", 160, 33, [=](auto const* in, auto* out) { gsm_encode(encoder, const_cast<std::int16_t*>(in), out); },
         [=](auto const* in, auto* out) { gsm_decode(decoder, const_cast<std::uint8_t*>(in), out); }},
        pcm, narrow);
}

void add_spandsp(entries& to, int number, samples const& pcm, samples const& wide) {
    switch (number) {
        case codec::mu_law:
        case codec::a_law: {
            g711_state_t* const state = g711_init(nullptr, number == codec::mu_law ? G711_ULAW : G711_ALAW);
            add_frame_coder(to,
                            {"spandsp", 80, 80, [=](auto const* in, auto* out) { g711_encode(state, out, in, 80); },
                             [=](auto const* in, auto* out) { g711_decode(state, out, in, 80); }},
                            pcm, narrow);
            break;
        }
        case codec::gsm_full_rate: {
            gsm0610_state_t* const encoder = gsm0610_init(nullptr, GSM0610_PACKING_VOIP);
            gsm0610_state_t* const decoder = gsm0610_init(nullptr, GSM0610_PACKING_VOIP);
            add_frame_coder(
                to,
                {"spandsp", 160, 33, [=](auto const* in, auto* out) { gsm0610_encode(encoder, out, in, 160); },
                 [=](auto const* in, auto* out) { gsm0610_decode(decoder, out, in, 33); }},
                pcm, narrow);
            break;
        }
        case codec::g722_64: {
            g722_encode_state_t* const encoder = g722_encode_init(nullptr, 64000, 0);
            g722_decode_state_t* const decoder = g722_decode_init(nullptr, 64000, 0);
            add_frame_coder(to,
                            {"spandsp", 160, 80, [=](auto const* in, auto* out) { g722_encode(encoder, out, in, 160); },
                             [=](auto const* in, auto* out) { g722_decode(decoder, out, in, 80); }},
                            wide, wide_rate);
            break;
        }
        case codec::g726_32: {
            g726_state_t* const encoder = g726_init(nullptr, 32000, G726_ENCODING_LINEAR, G726_PACKING_RIGHT);
            g726_state_t* const decoder = g726_init(nullptr, 32000, G726_ENCODING_LINEAR, G726_PACKING_RIGHT);
            add_frame_coder(to,
                            {"spandsp", 80, 40, [=](auto const* in, auto* out) { g726_encode(encoder, out, in, 80); },
                             [=](auto const* in, auto* out) { g726_decode(decoder, out, in, 40); }},
                            pcm, narrow);
            break;
        }
        default: break;
    }
}

struct av_coder {
    int number;
    char const* encoder;
    char const* decoder;
    std::int64_t bit_rate;
};
constexpr av_coder av_coders[] = {
    {codec::mu_law, "pcm_mulaw", "pcm_mulaw", 64000}, {codec::a_law, "pcm_alaw", "pcm_alaw", 64000},
    {codec::gsm_full_rate, "libgsm", "gsm", 13200},   {codec::g722_64, "g722", "g722", 64000},
    {codec::g726_32, "g726le", "g726le", 32000},
};

void must(int result, char const* what) {
    if (result >= 0)
        return;
    std::fprintf(stderr, "libavcodec: %s fails\n", what);
    std::exit(EXIT_FAILURE);
}

AVCodecContext* opened(AVCodec const* found, char const* name, int rate_hz, std::int64_t bit_rate) {
    must(found != nullptr ? 0 : -1, name);
    AVCodecContext* const context = avcodec_alloc_context3(found);
    context->sample_rate = rate_hz;
    context->sample_fmt = AV_SAMPLE_FMT_S16;
    context->bit_rate = bit_rate;
    context->bits_per_coded_sample = static_cast<int>(bit_rate / rate_hz);
    context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    must(avcodec_open2(context, found, nullptr), name);
    return context;
}

void add_libav(entries& to, av_coder const& coder, samples const& pcm, int rate_hz) {
    AVCodecContext* const encoder =
        opened(avcodec_find_encoder_by_name(coder.encoder), coder.encoder, rate_hz, coder.bit_rate);
    AVCodecContext* const decoder =
        opened(avcodec_find_decoder_by_name(coder.decoder), coder.decoder, rate_hz, coder.bit_rate);
    int const frame_samples = encoder->frame_size > 0 ? encoder->frame_size : rate_hz / 50;
    auto const frames = static_cast<int>(pcm.size()) / frame_samples;
    auto packets = std::make_shared<std::vector<AVPacket*>>();
    AVFrame* const input = av_frame_alloc();
    input->nb_samples = frame_samples;
    input->format = AV_SAMPLE_FMT_S16;
    input->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    AVPacket* const output = av_packet_alloc();
    auto const encode = [=, &pcm](bool keep) {
        for (int i = 0; i < frames; i++) {
            // Not copied: the frame only points at the samples, and no encoder of these keeps it.
            input->data[0] = reinterpret_cast<std::uint8_t*>(
                const_cast<std::int16_t*>(&pcm[static_cast<std::size_t>(i * frame_samples)]));
            input->linesize[0] = 2 * frame_samples;
            input->extended_data = input->data;
            must(avcodec_send_frame(encoder, input), "avcodec_send_frame");
            must(avcodec_receive_packet(encoder, output), "avcodec_receive_packet");
            if (keep)
                packets->push_back(av_packet_clone(output));
            av_packet_unref(output);
        }
    };
    encode(true);
    double const blocks = 100.0 * frames * frame_samples / rate_hz;
    to.encoders.push_back({"libavcodec", [=] { encode(false); }, blocks});
    AVFrame* const decoded = av_frame_alloc();
    to.decoders.push_back({"libavcodec",
                           [=] {
                               for (AVPacket* const packet : *packets) {
                                   must(avcodec_send_packet(decoder, packet), "avcodec_send_packet");
                                   must(avcodec_receive_frame(decoder, decoded), "avcodec_receive_frame");
                                   av_frame_unref(decoded);
                               }
                           },
                           blocks});
}

}  // namespace

entries codec_peers::of_codec(int codec, samples const& pcm, samples const& wide) {
    entries found;
    if (codec == codec::gsm_full_rate)
        add_libgsm(found, pcm);
    add_spandsp(found, codec, pcm, wide);
    for (av_coder const& coder : av_coders) {
        if (coder.number == codec)
            add_libav(found, coder, codec == codec::g722_64 ? wide : pcm, codec == codec::g722_64 ? 16000 : 8000);
    }
    return found;
}
