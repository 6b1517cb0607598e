#include "media/rtcp_session.h"

#include "lib/log.h"
#include "media/rtcp_packet.h"

namespace {

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
    for (int at = rtcp::sender_info_bytes; report.length() - at >= rtcp::size::report_block;
         at += rtcp::size::report_block)
        if (report.substr(at, 4) == ssrc)
            return true;
    return false;
}

}  // namespace

void rtcp_session::reset() {
    known = history();
    xr.clear();
    timer.clear();
}

str rtcp_session::report(transmission const& sent, reception const& received, int call) {
    rtcp::report_block block;
    if (received.get_ssrc().empty()) {
        log_line(7, "RTCP-XR has no SSRC on call %d", arg_int(call));
    } else {
        block.ssrc = received.get_ssrc();
        block.fraction_lost = rtcp::fraction_lost(known.packets_lost, static_cast<int>(received.get_packets()));
        block.lost = known.packets_lost;
        block.highest_sequence = received.get_highest_sequence();
        block.jitter = static_cast<std::uint32_t>(xr.calculate_jitter());
    }
    rtcp::sender_report const about{
        .ssrc = sent.get_ssrc(),
        .sent = ntp_time(rtimestamp::now()),
        .rtp_timestamp = sent.get_last_timestamp(),
        .packets = sent.get_packets(),
        .octets = sent.get_octets(),
        .received = block,
        .last_sr = known.last_sr,
        .delay_since_last_sr = short_ntp_since(known.last_sr_time),
    };
    str const extended = xr.get_packet(received.get_ssrc(), sent.get_ssrc(), known.round_trip_ms);
    return rtcp::get_rtcp_packet(about.build()) + rtcp::source_description(sent.get_ssrc()) +
           rtcp::get_rtcp_packet(extended);
}

str rtcp_session::bye(str const& local_ssrc, str const& reason) {
    if (!known.received)
        return str();
    known.received = false;
    return rtcp::bye(local_ssrc, reason);
}

void rtcp_session::receive(str const& compound, str const& local_ssrc, rtimestamp const& arrival) {
    known.received = true;
    rtcp::for_each_packet(compound, [&](int type, str const& report) {
        log_line(9, "RTCP report: %h", arg_str(report));
        if (type == rtcp::packet_type::sender_report)
            receive_sender_report(report, local_ssrc, arrival);
        else if (type == rtcp::packet_type::extended_report)
            xr.process_report(report, arrival);
    });
}

/// Keeps what the next report tells the peer. The delay value is read from the field of the peer's packet count, not
/// from a report block.
void rtcp_session::receive_sender_report(str const& report, str const& local_ssrc, rtimestamp const& arrival) {
    known.last_sr = report.substr(ntp_middle_offset, 4);
    known.last_sr_time = arrival;
    if (reports_on(report, local_ssrc))
        known.round_trip_ms = ms_from_short_ntp(str2uint32(report.substr(packet_count_offset, 4)));
}
