#include "media/transmission.h"

#include <algorithm>
#include <utility>

#include "lib/pcm.h"
#include "lib/random.h"
#include "lib/renew.h"
#include "media/rtp_header.h"

namespace {

constexpr int most_pieces = 6;  // chosen: of 10 ms; room for the usual packet times is made at once

/// A random multiple of 80 samples below 2^32 - 16.
std::uint32_t random_timestamp() {
    std::uint32_t const high = static_cast<std::uint32_t>(utils::rand()) << 15;
    std::uint32_t const low = static_cast<std::uint32_t>(utils::rand());
    return (high + low) % 53687091u * 80u;
}

}  // namespace

void transmission::draw_start() {
    sequence = static_cast<std::uint32_t>(utils::rand() % 32768 + 16384);
    timestamp = event_timestamp = random_timestamp();
}

void transmission::set_codec(int codec, int audio_payload_type, int event_type, int packet_time_ms) {
    codec_number = codec;
    payload_type = audio_payload_type;
    event_payload_type = event_type;
    if (packet_time_ms > 0)
        ptime_ms = packet_time_ms;
}

void transmission::set_ssrc(str const& new_ssrc) {
    ssrc = new_ssrc;
    srtp_tx.ssrc = new_ssrc;
}

void transmission::set_keys(str const& material, srtp_trailer const& packet_trailer) {
    key_material = material;
    trailer = packet_trailer;
    if (checking)
        checked.set_keys(material, packet_trailer);
    else if (is_protected())
        srtp_key(srtp_tx, material, ssrc);
    else
        renew(srtp_tx);
}

void transmission::collect(str const& encoded, int ms) {
    if (collected.empty() && !encoded.empty())
        make_room(encoded.length() * std::clamp(ptime_ms / std::max(ms, 1), 1, most_pieces));
    collected += encoded;
    collected_ms += ms;
}

/// For the payload, and in front of it for the header.
void transmission::make_room(int payload_bytes) {
    collected = str(nullptr, rtp_header::fixed_bytes + payload_bytes);
    collected.drop_front(rtp_header::fixed_bytes);
    collected.set_length(0);
}

str transmission::take_collected() {
    collected_ms = 0;
    return std::move(collected);
}

str transmission::packet(int type, str& payload, bool advance) {
    rtp_header header;
    header.marker = type != last_payload_type;
    header.payload_type = type;
    header.sequence = static_cast<std::uint16_t>(sequence);
    header.timestamp = last_timestamp = advance ? timestamp : event_timestamp;
    header.ssrc = ssrc;
    last_payload_type = type;

    str data = is_protected() ? protect(header.build(str::null), payload) : header.build(std::move(payload));
    packets++;
    sequence++;
    timestamp += static_cast<std::uint32_t>(ptime_ms * pcm::samples_per_ms);
    if (advance)
        event_timestamp = timestamp;
    return data;
}

str transmission::protect(str const& header, str& payload) {
    return checking ? checked.protect(header, payload, sequence)
                    : srtp_protect(srtp_tx, header, payload, sequence, trailer);
}

str transmission::protect_rtcp(str const& compound) {
    if (checking)
        return checked.protect_rtcp(compound);
    unsigned const index = rtcp_index;
    rtcp_index = (rtcp_index + 1) & last_index;
    return srtcp_protect(srtp_tx, compound, index, trailer.mki);
}
