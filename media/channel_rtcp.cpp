#include "lib/log_line.h"
#include "lib/sockets.h"
#include "media/channel.h"
#include "media/notifications.h"
#include "media/rtcp_packet.h"
#include "media/tcp_framing.h"

namespace {

constexpr int report_period_s = 2;
constexpr int ntp_middle_offset = 10;    // of the middle 32 bits of the NTP time in a sender report
constexpr int packet_count_offset = 20;  // in a sender report

/// 1/65536 s since an instant on the process clock, in 32 bits.
std::uint32_t short_ntp_since(rtimestamp const& instant) {
    std::uint32_t const ms = static_cast<std::uint32_t>(rtimestamp::now().diff_ms(instant));
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(ms * 65536u) / 1000);
}

/// Milliseconds from 1/65536 s, rounded.
int ms_from_short_ntp(std::uint32_t value) {
    return static_cast<int>((value * 1000u + 32768u) >> 16);
}

/// Whether a sender report has a block about the stream of this SSRC.
bool reports_on(str const& report, str const& ssrc) {
    for (int at = rtcp::sender_info_bytes; report.length() - at >= rtcp::report_block_bytes;
         at += rtcp::report_block_bytes)
        if (report.substr(at, 4) == ssrc)
            return true;
    return false;
}

}  // namespace

void channel::send_rtcp_update(int index) {
    if (!channels.valid(index))
        return;
    channel& reporting = channels[index];
    reporting.send_rtcp_sr();
    reporting.rtcp_timer.callback(rtimestamp::s2ticks(report_period_s),
                                  callback_argument(send_rtcp_update, index));
}

void channel::send_rtcp_sr() {
    int const jitter = xr.calculate_jitter();
    rtcp::reception received;
    if (remote_ssrc.empty()) {
        log_line(7, "RTCP-XR has no SSRC on call %d", arg_int(id + 1));
    } else {
        received.ssrc = remote_ssrc;
        received.fraction_lost = rtcp::fraction_lost(packets_lost, static_cast<int>(rx_packets));
        received.lost = packets_lost;
        received.highest_sequence = highest_sequence;
        received.jitter = static_cast<std::uint32_t>(jitter);
    }
    rtcp::sender_report const report{
        .ssrc = local_ssrc,
        .sent = ntp_time(rtimestamp::now()),
        .rtp_timestamp = last_sent_timestamp,
        .packets = tx_packets,
        .octets = tx_octets,
        .received = received,
        .last_sr = last_sr,
        .delay_since_last_sr = short_ntp_since(last_sr_time),
    };
    str const extended = xr.get_packet(remote_ssrc, local_ssrc, round_trip_ms);
    send_rtcp_packet(rtcp::get_rtcp_packet(report.build()) + rtcp::source_description(local_ssrc) +
                     rtcp::get_rtcp_packet(extended));
}

void channel::send_rtcp_bye(str const& reason) {
    if (!rtcp_received)
        return;
    rtcp_received = false;
    send_rtcp_packet(rtcp::bye(local_ssrc, reason));
}

void channel::send_rtcp_packet(str const& compound) {
    send_rtcp_report(compound, false);
    str const data = srtp_tx_key.empty() ? compound : protect_rtcp(compound);
    if (tcp_mode)
        rtcp_tcp.queue(frame_for_tcp(data));
    else
        send_rtcp_datagram(rtcp_dest, data);
}

/// Copies a compound packet to call control, when there is a call.
void channel::send_rtcp_report(str const& compound, bool received) const {
    if (!call_id.empty())
        notify::rtcp_copy(id, call_id, compound, received);
}

void channel::process_rtcp4() {
    ip_port from;
    str const compound = utils::recv_udp_packet4(fd_rtcp4, from);
    process_rtcp_datagram(compound, from, fd_rtcp4);
}

void channel::process_rtcp6() {
    ip_port from;
    str const compound = utils::recv_udp_packet6(fd_rtcp6, from);
    process_rtcp_datagram(compound, from, fd_rtcp6);
}

void channel::process_rtcp_datagram(str const& compound, ip_port const& from, int fd) {
    process_rtcp(compound, from, false, utils::on_process_clock(utils::receive_stamp(fd)));
}

void channel::process_rtcp(str const& compound, ip_port const& from, bool tcp, rtimestamp const& arrival) {
    if (tcp)
        log_line(9, "received rtcp msg on tcp socket");
    if (compound.empty())
        return;
    if (compound[0] <= 1) {
        notify::stun_on_rtcp(id, from, compound);
        return;
    }
    if (accept_rtcp_source(from, tcp)) {
        rtcp_received = true;
        decrypt_srtcp(compound);  // for its log line; what follows looks at the packet as it came
        log_line(9, "RTCP: %h", arg_str(compound));
        send_rtcp_report(compound, true);
        rtcp::for_each_packet(compound, [&](int type, str const& report) {
            log_line(9, "RTCP report: %h", arg_str(report));
            if (type == rtcp::sender_report_type)
                process_sender_report(report, arrival);
            else if (type == rtcp::extended_report_type)
                xr.process_report(report, arrival);
        });
    }
    log_line(9, "RTCP: Done.");
}

/// Over UDP only the first sender's reports count.
bool channel::accept_rtcp_source(ip_port const& from, bool tcp) {
    if (tcp)
        return true;
    if (!rtcp_source.empty() && rtcp_source != from)
        return false;
    rtcp_source = from;
    return true;
}

/// Keeps what the next report tells the peer. The delay value is read from the field of the peer's packet count, not
/// from a report block.
void channel::process_sender_report(str const& report, rtimestamp const& arrival) {
    last_sr = report.substr(ntp_middle_offset, 4);
    last_sr_time = arrival;
    if (reports_on(report, local_ssrc))
        round_trip_ms = ms_from_short_ntp(str2uint32(report.substr(packet_count_offset, 4)));
}
