#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstring>
#include <memory>
#include <stdexcept>

#include "tests/support/signals.h"

/// libavcodec's G.722 coder at 64 kbit/s and 16 kHz, one direction. Throws when the library has none.
class libav_g722 {
public:
    enum direction { encoder, decoder };

    explicit libav_g722(direction which) {
        AVCodec const* const codec = which == encoder ? avcodec_find_encoder(AV_CODEC_ID_ADPCM_G722)
                                                      : avcodec_find_decoder(AV_CODEC_ID_ADPCM_G722);
        context.reset(avcodec_alloc_context3(codec));
        context->sample_rate = 16000;
        context->sample_fmt = AV_SAMPLE_FMT_S16;
        context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        check(avcodec_open2(context.get(), codec, nullptr));
    }

    /// A multiple of 320 samples, two to a byte.
    signals::bytes encode(signals::samples const& pcm) {
        signals::bytes out;
        for (std::size_t at = 0; at < pcm.size(); at += 320) {
            frame->nb_samples = 320;
            frame->format = AV_SAMPLE_FMT_S16;
            frame->ch_layout = AV_CHANNEL_LAYOUT_MONO;
            check(av_frame_get_buffer(frame.get(), 0));
            std::memcpy(frame->data[0], &pcm[at], 640);
            check(avcodec_send_frame(context.get(), frame.get()));
            av_frame_unref(frame.get());
            check(avcodec_receive_packet(context.get(), packet.get()));
            out.insert(out.end(), packet->data, packet->data + packet->size);
            av_packet_unref(packet.get());
        }
        return out;
    }

    /// A multiple of 160 bytes.
    signals::samples decode(signals::bytes const& data) {
        signals::samples out;
        for (std::size_t at = 0; at < data.size(); at += 160) {
            check(av_new_packet(packet.get(), 160));
            std::memcpy(packet->data, &data[at], 160);
            check(avcodec_send_packet(context.get(), packet.get()));
            av_packet_unref(packet.get());
            check(avcodec_receive_frame(context.get(), frame.get()));
            auto const* const pcm = reinterpret_cast<std::int16_t const*>(frame->data[0]);
            out.insert(out.end(), pcm, pcm + frame->nb_samples);
            av_frame_unref(frame.get());
        }
        return out;
    }

private:
    static void check(int result) {
        if (result < 0)
            throw std::runtime_error("libavcodec: G.722 fails");
    }

    struct release {
        void operator()(AVCodecContext* owned) const { avcodec_free_context(&owned); }
        void operator()(AVPacket* owned) const { av_packet_free(&owned); }
        void operator()(AVFrame* owned) const { av_frame_free(&owned); }
    };
    std::unique_ptr<AVCodecContext, release> context;
    std::unique_ptr<AVPacket, release> packet{av_packet_alloc()};
    std::unique_ptr<AVFrame, release> frame{av_frame_alloc()};
};
