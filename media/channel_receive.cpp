#include "lib/log_line.h"
#include "lib/sockets.h"
#include "media/channel.h"
#include "media/notifications.h"
#include "media/rtp_sequence.h"

namespace {

// Time in 8 kHz ticks.
constexpr std::uint32_t stream_alive = 800;       // 100 ms: another SSRC can't take over yet
constexpr std::uint32_t step_back_window = 4000;  // 500 ms: a sender that restarts its numbers is followed
constexpr int oldest_packet_ms = 3000;            // a buffer holding anything older is thrown away
constexpr int most_packets = 400;                 // so is one of more packets
constexpr int first_unaccepted_codec = 128;       // values of the payload-type map that stand for "none"
constexpr int deepest = 16;                       // packets; limit of the adaptive depth
constexpr int tag_media_packet = 13;              // sub-tag under which data is handed up

/// ZRTP (RFC 6189 section 5): first nibble 1, magic cookie "ZRTP" where RTP has its timestamp.
bool is_zrtp(str const& data) {
    return (data[0] & 0xF0) == 0x10 && data.substr(4, 4) == "ZRTP";
}

/// STUN (RFC 5389 section 6): the two top bits of the message type are clear.
bool is_stun(str const& data) {
    return data[0] <= 1;
}

void log_from(char const* format, ip_port const& from) {
    if (!log_check_condition(7))
        return;
    str const sender = utils::readable_ip(from);
    log_line(7, format, arg_str(sender));
}

}  // namespace

void channel::process_rtp4() {
    ip_port from;
    str const data = utils::recv_udp_packet4(fd_rtp4, from);
    process_rtp(data, from, false, utils::receive_stamp(fd_rtp4));
}

void channel::process_rtp6() {
    ip_port from;
    str const data = utils::recv_udp_packet6(fd_rtp6, from);
    process_rtp(data, from, false, utils::receive_stamp(fd_rtp6));
}

int channel::process_rtp_data(str const& data, ip_port const& from, bool tcp, rtimestamp const& time) {
    if (data.length() < rtp_header::fixed_bytes)
        return 0;
    if (is_zrtp(data)) {
        notify::zrtp(id, from, data);
        return 0;
    }
    if (is_stun(data)) {
        log_line(8, "TCP rec send tunnel cmd");
        send_command_tunnel_rtp(id, from, data, tcp, tag_media_packet);
    }
    if (!rtp_header::is_version_2(data))
        return 0;
    rtp_header const header = rtp_header::parse(data);
    if (header.payload_type >= payload_map.length())
        return 0;
    rx_codec = payload_map[header.payload_type];
    if (rx_codec >= first_unaccepted_codec)
        return 0;

    std::uint32_t const now = time.get_rtp_timestamp();
    if (!latch_ssrc(header, from, now))
        return 0;
    std::uint32_t sequence = extend_sequence(header.sequence, last_played_seq);
    str payload = data.substr(header.bytes);
    if (srtp_rx_key.empty())
        follow_sequence_step_back(sequence, now);
    else if (!unprotect(data, header, sequence, payload))
        return 0;
    if (!tcp_mode)
        rtp_source = from;
    rx_packets++;
    if (highest_sequence < sequence)
        highest_sequence = sequence;
    bool const first = start_talk_spurt(header.marker, sequence);
    last_rx_rtp_time = now;
    if (last_played_seq < sequence) {
        buffer_packet(sequence, packet{rx_codec, time, first, payload});
        xr.monitor(static_cast<int>(sequence), static_cast<int>(header.timestamp), static_cast<int>(now));
    } else {
        xr.add_discard();
        raise_jitter_depth();
    }
    return 0;
}

/// Decides whose stream is received. False: the packet competes with a stream that is alive.
bool channel::latch_ssrc(rtp_header const& header, ip_port const& from, std::uint32_t now) {
    if (remote_ssrc.empty()) {
        take_ssrc(header.ssrc, from);
        log_from(srtp_rx_key.empty() ? "Receiving RTP from %s" : "Receiving SRTP from %s", from);
        key_reception();
        return true;
    }
    if (header.ssrc == remote_ssrc)
        return true;
    if (playing && now - last_rx_rtp_time < stream_alive)
        return false;
    log_line(5, "Tuning to new SSRC");
    take_ssrc(header.ssrc, from);
    highest_sequence = 0;
    jitter_buffer.clear();
    playing = false;
    key_reception();
    return true;
}

void channel::take_ssrc(str const& ssrc, ip_port const& from) {
    remote_ssrc = ssrc;
    notify::new_ssrc(id, from, ssrc);
}

/// A sender that stepped its sequence numbers back within a live stream is followed instead of being discarded.
void channel::follow_sequence_step_back(std::uint32_t sequence, std::uint32_t now) {
    if (sequence == 0 || sequence > last_played_seq || !playing || now - last_rx_rtp_time >= step_back_window)
        return;
    log_line(5, "Resuming RTP playback");
    last_played_seq = sequence - 1;
}

/// Whether the packet starts a talk spurt: it carries the marker, or play-out (re)starts with it.
bool channel::start_talk_spurt(bool marker, std::uint32_t sequence) {
    if (marker)
        empty_jitter_buffer();
    if (playing || sequence == 0)
        return marker;
    last_played_seq = sequence - 1;
    playing = true;
    return true;
}

/// Stores a packet that is still to be played; of duplicates the first copy stays. A buffer that grew too old or
/// too long is thrown away whole.
void channel::buffer_packet(std::uint32_t sequence, packet const& entry) {
    int const key = static_cast<int>(sequence);
    bool const duplicate = jitter_buffer.find(key) != jitter_buffer.end();
    int const age_ms =
        jitter_buffer.empty() ? 0 : entry.received.diff_ms(jitter_buffer.begin()->second.received);
    if (jitter_buffer.size() > most_packets || age_ms > oldest_packet_ms) {
        empty_jitter_buffer();
        log_line(7, "jitter buffer deleted");
    }
    if (duplicate)
        return;
    jitter_buffer.insert(key, entry);
    playing = true;
}

/// Empties the buffer; play-out starts anew with the next packet.
void channel::empty_jitter_buffer() {
    jitter_buffer.clear();
    jb_in_order = 0;
    jb_depth = 1;
    playing = false;
}

void channel::raise_jitter_depth() {
    jb_in_order = 0;
    if (jb_depth < deepest)
        jb_depth++;
}
