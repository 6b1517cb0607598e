#include "media/digit_sender.h"

#include <algorithm>

#include "lib/pcm.h"
#include "lib/wire.h"

namespace {

constexpr int end_packets = 3;  // RFC 4733 section 2.5.1.4: the end of an event is sent three times

// The payload (RFC 4733 section 2.3): event; end bit, reserved bit, volume -10 dBm0; 16 bits of duration in 8 kHz
// ticks.
constexpr int event_bytes = 4;
constexpr unsigned char event_volume = 10;
constexpr unsigned char event_end_bit = 0x80;

}  // namespace

void digit_sender::add(int digit) {
    if (queue.length() < most_digits)
        queue += static_cast<unsigned char>(digit);
}

str digit_sender::event_payload(int collected_ms, int ptime_ms) const {
    int const blocks = std::max(ptime_ms / pcm::block_ms, 1);
    int const end_from = tone_until - end_packets * (collected_ms / pcm::block_ms);
    bool const is_end = step >= end_from;
    int const counted = (is_end ? end_from : step) + blocks - (tone_from + 1);
    int const duration = counted / blocks * blocks * pcm::block_samples;
    unsigned char payload[event_bytes];
    payload[0] = queue[0];
    payload[1] = is_end ? event_end_bit | event_volume : event_volume;
    wire::put16(payload + 2, static_cast<std::uint32_t>(duration));
    return str(payload, event_bytes);
}

str digit_sender::replace(str const& pcm) {
    str audio;
    while (audio.length() < pcm.length() && is_sending())
        audio += next_block();
    return audio + pcm.substr(audio.length());
}

/// 10 ms of the digit being sent: silence around it, its tones in between.
str digit_sender::next_block() {
    str block;
    if (in_tone(step)) {
        block = generator.get_samples(queue[0], generator.in_band_attenuation());
    } else {
        block = str('\0', pcm::block_bytes);
        generator.clear();
    }
    if (++step > last_step) {
        step = 0;
        queue = queue.substr(1);
    }
    return block;
}
