#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstring>
#include <stdexcept>

#include "tests/support/signals.h"

/// libavcodec's G.722 decoder at 64 kbit/s: 16 kHz and 15 bits from a multiple of 160 bytes. Throws when the library has none.
inline signals::samples libav_g722_decode(signals::bytes const& data) {
    auto const check = [](int result) {
        if (result < 0)
            throw std::runtime_error("libavcodec: G.722 fails");
    };
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_ADPCM_G722));
    context->sample_rate = 16000;
    context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    check(avcodec_open2(context, nullptr, nullptr));
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    signals::samples out;
    for (std::size_t at = 0; at < data.size(); at += 160) {
        check(av_new_packet(packet, 160));
        std::memcpy(packet->data, &data[at], 160);
        check(avcodec_send_packet(context, packet));
        av_packet_unref(packet);
        check(avcodec_receive_frame(context, frame));
        auto const* const pcm = reinterpret_cast<std::int16_t const*>(frame->data[0]);
        for (int i = 0; i < frame->nb_samples; i++)
            out.push_back(static_cast<std::int16_t>(pcm[i] >> 1));
    }
    avcodec_free_context(&context);
    av_packet_free(&packet);
    av_frame_free(&frame);
    return out;
}
