// What a channel moves: packets from its ports to the line, blocks from the line to its ports, reports both ways.

#include <utility>

#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/pcm.h"
#include "lib/protocol.h"
#include "lib/sockets.h"
#include "media/channel.h"
#include "media/demultiplexing.h"
#include "media/notifications.h"
#include "media/tcp_framing.h"

namespace {

constexpr int most_passes = 10;  // over one piece of a stream
constexpr int report_period_s = 2;

}  // namespace

// ---- RTP in

void channel::process_rtp4() {
    media_port::datagram const got = rtp.receive4();
    process_rtp(got.data, got.from, false, got.stamp);
}

void channel::process_rtp6() {
    media_port::datagram const got = rtp.receive6();
    process_rtp(got.data, got.from, false, got.stamp);
}

void channel::process_rtpt() {
    str const data = rtp.receive_stream();
    if (!data.empty())
        process_rtp(data, rtp.get_tcp_peer(), true, rtimestamp::now());
}

void channel::process_rtp(str const& data, ip_port const& from, bool tcp, rtimestamp const& time) {
    if (!tcp) {
        process_rtp_data(data, from, false, time);
        return;
    }
    str rest = data;
    for (int pass = 1; pass <= most_passes && !rest.empty(); pass++) {
        if (process_tcp_header(rest, from, protocol::report_tunnel::rtp_data)) {
            log_line(8, "tcp control");
            continue;
        }
        if (process_tcp_packet(rest, from, time))
            rest.clear();
        log_line(8, "loop count %d", arg_int(pass));
    }
}

/// Takes what call control handles itself off the front of a stream's piece and hands it up under sub-tag `tag`. True:
/// that was all there is to do with the front. False: `data` is a bare packet, out of its frame if it had one.
bool channel::process_tcp_header(str& data, ip_port const& from, int tag) {
    tcp_unit const unit = parse_tcp_unit(data);
    switch (unit.what) {
        case tcp_unit::kind::incomplete: log_line(8, "need to wait for more data to arrive"); return true;
        case tcp_unit::kind::control:
            log_line(8, "TCP rec len turn_pdu %d %H", arg_int(unit.data.length()), arg_str(unit.data));
            send_command_tunnel_rtp(id, from, unit.data, true, tag);
            data = unit.rest;
            return true;
        case tcp_unit::kind::bare:
        case tcp_unit::kind::packet: data = unit.data; break;
    }
    return false;
}

/// One bare packet from the RTP connection; false: it is of no kind that travels there.
bool channel::process_tcp_packet(str const& data, ip_port const& from, rtimestamp const& time) {
    if (process_tcp_rtcp(data)) {
        log_line(8, "rtcp %H", arg_str(data));
        process_rtcp(data, from, true, time);
    } else if (demultiplexing::is_tls(data)) {
        log_line(8, "pseudo tls");
        send_command_tunnel_rtp(id, from, data, true, protocol::report_tunnel::rtp_data);
    } else if (rtp_header::is_version_2(data)) {
        log_line(8, "rtp %H", arg_str(data));
        process_rtp_data(data, from, true, time);
    } else {
        log_line(8, "no rtp %H", arg_str(data));
        return false;
    }
    return true;
}

int channel::process_rtp_data(str const& data, ip_port const& from, bool tcp, rtimestamp const& time) {
    if (data.length() < rtp_header::fixed_bytes)
        return 0;
    if (demultiplexing::is_zrtp(data)) {
        notify::zrtp(id, from, data);
        return 0;
    }
    if (demultiplexing::is_stun(data)) {
        log_line(8, "TCP rec send tunnel cmd");
        send_command_tunnel_rtp(id, from, data, tcp, protocol::report_tunnel::rtp_data);
    }
    if (!rtp_header::is_version_2(data))
        return 0;
    std::uint32_t const arrived = time.get_rtp_timestamp();
    reception::result got = receiving.receive(data, {buffer.get_last_played(), buffer.is_playing()}, arrived);
    tell_of_stream(got, from);
    if (got.change == reception::stream::taken_over)
        buffer.stop();
    tell_of_keys(got);
    if (!got.accepted)
        return 0;
    if (!rtp.is_tcp())
        rtp.set_source(from);
    keep(got, time, arrived);
    return 0;
}

void channel::tell_of_stream(reception::result const& got, ip_port const& from) const {
    if (got.change == reception::stream::followed)
        return;
    if (got.change == reception::stream::taken_over)
        log_line(5, "Tuning to new SSRC");
    notify::new_ssrc(id, from, receiving.get_ssrc());
    if (got.change == reception::stream::first && log_check_condition(7)) {
        str const sender = utils::readable_ip(from);
        log_line(7, receiving.is_protected() ? "Receiving SRTP from %s" : "Receiving RTP from %s", arg_str(sender));
    }
}

void channel::tell_of_keys(reception::result const& got) const {
    int const dropped = got.dropped_for_tag;
    if (dropped == 10 || dropped == 100 || dropped == 1000)
        log_line(4, "Dropped %d SRTP packets with wrong MAC (seq=%d)", arg_int(dropped),
                 arg_int(static_cast<int>(got.sequence)));
    if (got.first_verified)
        notify::srtp_verified(id);
}

/// Brings a packet, whose payload moves on, into the jitter buffer and the reports. `arrived` is `time` at 8 kHz.
void channel::keep(reception::result& got, rtimestamp const& time, std::uint32_t arrived) {
    if (got.steps_back && player.follows_steps_back()) {
        log_line(5, "Resuming RTP playback");
        buffer.play_from(got.sequence);
    }
    jitter_buffer::arrival const arrival =
        player.put(buffer, got.sequence, got.marker, {got.codec, time, false, std::move(got.payload), got.timestamp});
    if (arrival.late) {
        reports.extended().add_discard();
        return;
    }
    if (arrival.thrown_away)
        log_line(7, "jitter buffer deleted");
    reports.extended().monitor(static_cast<int>(got.sequence), static_cast<int>(got.timestamp),
                               static_cast<int>(arrived));
}

// ---- to the line

str channel::get_samples(bool& talk_spurt) {
    playout::events told;
    str block = player.next(buffer, codec_state, told);
    talk_spurt = told.starts_talk_spurt;
    if (told.announcement_ended)
        notify::playback_empty(id);
    if (told.buffered_ms >= 0)
        reports.extended().monitor_jitter_buffer_size(told.buffered_ms);
    return block;
}

int channel::settle() {
    return player.is_settled(buffer) ? -1 : player.settle(buffer, utils::time_of_day().get_rtp_timestamp());
}

// ---- from the line, RTP out

int channel::process_audio(str const& pcm) {
    if (player.keeps_time())
        player.pass_block(utils::time_of_day().get_rtp_timestamp());
    if (sends_events() && digits.in_tone()) {
        send_event_step();
        return 0;
    }
    if (digits.is_sending())
        encode(digits.replace(pcm));
    else
        encode(pcm);
    if (sending.is_complete()) {
        str payload = sending.take_collected();
        send_rtp(sending.get_payload_type(), payload, true);
    }
    return 0;
}

void channel::encode(str const& audio) {
    sending.collect(codec_state.encode(sending.get_codec(), audio), audio.length() / pcm::bytes_per_ms);
}

/// 10 ms of a telephone event: the captured audio is discarded, every packet time one event packet leaves.
void channel::send_event_step() {
    sending.collect(str::null, pcm::block_ms);
    if (sending.is_complete()) {
        str payload = digits.event_payload(sending.get_collected_ms(), sending.get_ptime_ms());
        send_rtp(sending.get_event_payload_type(), payload, false);
        sending.take_collected();  // audio from before the event is dropped
    }
    digits.pass_event_step();
}

void channel::send_rtp(int payload_type, str& payload, bool advance) {
    sending.count_octets(rtp.send(sending.packet(payload_type, payload, advance)));
}

// ---- RTCP

void channel::process_rtcp4() {
    process_rtcp_datagram(rtcp.receive4());
}

void channel::process_rtcp6() {
    process_rtcp_datagram(rtcp.receive6());
}

void channel::process_rtcp_datagram(media_port::datagram const& got) {
    process_rtcp(got.data, got.from, false, utils::on_process_clock(got.stamp));
}

/// Reports come framed like all media; bare ones are understood as well.
void channel::process_rtcpt() {
    str data = rtcp.receive_stream();
    for (int pass = 0; pass < most_passes && !data.empty(); pass++) {
        if (process_tcp_header(data, rtcp.get_tcp_peer(), protocol::report_tunnel::rtcp_data))
            continue;
        process_rtcp(data, rtcp.get_tcp_peer(), true, rtimestamp::now());
        break;
    }
}

void channel::process_rtcp(str const& compound, ip_port const& from, bool tcp, rtimestamp const& arrival) {
    if (tcp)
        log_line(9, "received rtcp msg on tcp socket");
    if (compound.empty())
        return;
    if (demultiplexing::is_stun(compound)) {
        notify::stun_on_rtcp(id, from, compound);
        return;
    }
    str plain = compound;
    bool const checks = receiving.checks_rtcp();
    if (checks && !receiving.unprotect_rtcp(compound, plain)) {
        log_line(9, "RTCP not authentic");
        return;
    }
    if (tcp || rtcp.latch_source(from)) {
        if (!checks)
            plain = decrypt_srtcp(compound);
        log_line(9, "RTCP: %h", arg_str(compound));
        send_rtcp_report(compound, true);
        // Read as they came, encrypted or not, unless an extension wants to know better.
        reports.receive(checks || reports.is_exact() ? plain : compound, sending.get_ssrc(), arrival);
    }
    log_line(9, "RTCP: Done.");
}

/// The packet decrypted, when a transmit key switches RTCP protection on and the packet says that it is encrypted.
str channel::decrypt_srtcp(str const& compound) {
    str plain = compound;
    if (sending.is_protected() && !receiving.unprotect_rtcp(compound, plain))
        log_line(9, "RTCP not enrypted");
    return plain;
}

void channel::send_rtcp_update(int index) {
    if (!channels.valid(index))
        return;
    channel& reporting = channels[index];
    reporting.send_rtcp_sr();
    reporting.reports.schedule(rtimestamp::s2ticks(report_period_s), callback_argument(send_rtcp_update, index));
}

void channel::send_rtcp_sr() {
    str const compound = reports.report(sending, receiving, id + 1);
    if (!compound.empty())
        send_rtcp_packet(compound);
}

void channel::send_rtcp_bye(str const& reason) {
    str const bye = reports.bye(sending.get_ssrc(), reason);
    if (!bye.empty())
        send_rtcp_packet(bye);
}

void channel::send_rtcp_packet(str const& compound) {
    send_rtcp_report(compound, false);
    rtcp.send_or_queue(sending.is_protected() ? sending.protect_rtcp(compound) : compound);
}

/// Copies a compound packet to call control, when there is a call.
void channel::send_rtcp_report(str const& compound, bool received) const {
    if (!call_id.empty())
        notify::rtcp_copy(id, call_id, compound, received);
}
