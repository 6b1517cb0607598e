#include <algorithm>

#include "media/channel.h"
#include "media/tcp_framing.h"
#include "srtp/srtp_packet.h"

namespace {

constexpr int block_bytes = 160;  // 10 ms
constexpr int block_ms = 10;
constexpr int block_samples = 80;
constexpr int pcm_bytes_per_ms = 16;
constexpr int samples_per_ms = 8;

// The rhythm of one digit in steps of 10 ms: 60 ms silence, 380 ms tone, 60 ms silence.
constexpr int tone_from = 6;
constexpr int tone_until = 44;
constexpr int last_step = 49;
constexpr int end_packets = 3;  // RFC 4733 section 2.5.1.4: the end of an event is sent three times

// Byte 1 of the event payload (RFC 4733 section 2.3): end bit, reserved bit, volume -10 dBm0.
constexpr unsigned char event_volume = 10;
constexpr unsigned char event_end_bit = 0x80;

bool in_tone(int step) {
    return step >= tone_from && step < tone_until;
}

/// Payload of the event packet sent at this step of the digit: event, volume and end bit, duration in 8 kHz ticks.
str event_payload(unsigned char event, int step, int collected_ms, int ptime_ms) {
    int const blocks = std::max(ptime_ms / block_ms, 1);
    int const end_from = tone_until - end_packets * (collected_ms / block_ms);
    bool const is_end = step >= end_from;
    int const counted = (is_end ? end_from : step) + blocks - (tone_from + 1);
    int const duration = counted / blocks * blocks * block_samples;
    return str(event, is_end ? event_end_bit | event_volume : event_volume,
               static_cast<unsigned char>(duration >> 8), static_cast<unsigned char>(duration));
}

}  // namespace

int channel::process_audio(str const& pcm) {
    if (!dtmf_queue.empty() && event_payload_type >= 1 && in_tone(dtmf_tick)) {
        send_event_tick();
        return 0;
    }
    str const audio = dtmf_queue.empty() ? pcm : with_digit(pcm);
    tx_audio += codec_state.encode(tx_codec, audio);
    tx_audio_ms += audio.length() / pcm_bytes_per_ms;
    if (tx_audio_ms >= ptime) {
        send_rtp(tx_payload_type, tx_audio, true);
        tx_audio_ms = 0;
        tx_audio.clear();
    }
    return 0;
}

/// 10 ms of a telephone event: the captured audio is discarded, every packet time one event packet leaves.
void channel::send_event_tick() {
    tx_audio_ms += block_ms;
    if (tx_audio_ms >= ptime) {
        str payload = event_payload(dtmf_queue[0], dtmf_tick, tx_audio_ms, ptime);
        send_rtp(event_payload_type, payload, false);
        tx_audio_ms = 0;
        tx_audio.clear();
    }
    dtmf_tick++;
}

/// The audio with its blocks replaced by those of the queued digits.
str channel::with_digit(str const& pcm) {
    str audio;
    while (audio.length() < pcm.length() && !dtmf_queue.empty())
        audio += next_digit_block();
    return audio + pcm.substr(audio.length());
}

/// 10 ms of the digit being sent: silence around it, its tones in between.
str channel::next_digit_block() {
    str block;
    if (in_tone(dtmf_tick)) {
        block = dtmf.get_samples(dtmf_queue[0], 0);
    } else {
        block = str('\0', block_bytes);
        dtmf.clear();
    }
    if (++dtmf_tick > last_step) {
        dtmf_tick = 0;
        dtmf_queue = dtmf_queue.substr(1);
    }
    return block;
}

void channel::send_rtp(int payload_type, str& payload, bool advance) {
    rtp_header header;
    header.marker = payload_type != last_tx_payload_type;
    header.payload_type = payload_type;
    header.sequence = static_cast<std::uint16_t>(tx_seq);
    header.timestamp = advance ? tx_timestamp : event_timestamp;
    header.ssrc = local_ssrc;
    last_tx_payload_type = payload_type;
    tx_active = true;
    tx_idle = false;

    str data = srtp_tx_key.empty() ? header.build(payload)
                                   : srtp_protect(srtp.tx, header.build(str::null), payload, tx_seq,
                                                  {srtp_tag_length, srtp_mki});
    if (!tcp_mode) {
        send_rtp_datagram(rtp_dest, data);
    } else if (rtp_tcp.is_open()) {
        data = frame_for_tcp(data);
        rtp_tcp.send(data);
    }

    tx_packets++;
    tx_octets += static_cast<std::uint32_t>(data.length());
    tx_seq++;
    last_sent_timestamp = header.timestamp;
    tx_timestamp += static_cast<std::uint32_t>(ptime * samples_per_ms);
    if (advance)
        event_timestamp = tx_timestamp;
}
