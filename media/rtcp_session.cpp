#include "media/rtcp_session.h"

#include <algorithm>
#include <iterator>

#include "lib/log.h"
#include "media/rtcp_packet.h"

namespace {

constexpr int ntp_middle_offset = 10;    // of the middle 32 bits of the NTP time in a sender report
constexpr int packet_count_offset = 20;  // in a sender report
constexpr int ssrc_offset = 4;           // of the sender, in any report
constexpr int receiver_info_bytes = 8;   // of a receiver report, in front of its blocks
constexpr int block_last_sr_offset = 16, block_delay_offset = 20;  // in a report block

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
    exact = extensions.rtcp;
}

str rtcp_session::report(transmission const& sent, reception const& received, int call) {
    if (exact)
        return report_exactly(sent, received);
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
        if (exact)
            receive_exactly(type, report, local_ssrc, arrival);
        else if (type == rtcp::packet_type::sender_report)
            receive_sender_report(report, local_ssrc, arrival);
        if (type == rtcp::packet_type::extended_report)
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

// ---- exact reports

/// Whether anything was sent since the report before the last one (RFC 3550 section 6.4).
bool rtcp_session::has_sent(transmission const& sent) {
    bool const any = sent.get_packets() != known.packets_sent[1];
    known.packets_sent[1] = known.packets_sent[0];
    known.packets_sent[0] = sent.get_packets();
    return any;
}

rtcp::report_block rtcp_session::exact_block(reception const& received) {
    source_statistics const& source = received.get_statistics();
    if (source.empty())
        return {};
    if (known.source != received.get_ssrc())
        known.losses.clear();
    known.source = received.get_ssrc();
    return {
        .ssrc = known.source,
        .fraction_lost = known.losses.take(source),
        .lost = source.get_lost(),
        .highest_sequence = source.get_highest(),
        .jitter = source.get_jitter(),
    };
}

str rtcp_session::report_exactly(transmission const& sent, reception const& received) {
    if (sent.get_ssrc().empty())
        return str();
    moment const now = moment::of(rtimestamp::now());
    std::copy_backward(known.reports, std::end(known.reports) - 1, std::end(known.reports));
    known.reports[0] = now;
    bool const answers = !known.last_sr.empty() && known.last_sr_ssrc == received.get_ssrc();
    rtcp::sender_report const about{
        .ssrc = sent.get_ssrc(),
        .sent = now.day,
        .rtp_timestamp = sent.get_last_timestamp(),
        .packets = sent.get_packets(),
        .octets = sent.get_octets(),
        .received = exact_block(received),
        .last_sr = answers ? known.last_sr : str(),
        .delay_since_last_sr = now.since(known.last_sr_moment),
    };
    str const extended = xr.get_packet(received.get_ssrc(), sent.get_ssrc(), known.round_trip_ms, received.get_codec());
    return rtcp::get_rtcp_packet(about.build_exact(has_sent(sent))) + rtcp::source_description(sent.get_ssrc()) +
           rtcp::get_rtcp_packet(extended);
}

void rtcp_session::receive_exactly(int type, str const& report, str const& local_ssrc, rtimestamp const& arrival) {
    bool const is_sender = type == rtcp::packet_type::sender_report;
    if (!is_sender && type != rtcp::packet_type::receiver_report)
        return;
    if (is_sender && report.length() >= rtcp::sender_info_bytes) {
        known.last_sr = report.substr(ntp_middle_offset, 4);
        known.last_sr_ssrc = report.substr(ssrc_offset, 4);
        known.last_sr_moment = moment::of(arrival);
    }
    int at = is_sender ? rtcp::sender_info_bytes : receiver_info_bytes;
    for (; report.length() - at >= rtcp::size::report_block; at += rtcp::size::report_block)
        if (report.substr(at, 4) == local_ssrc)
            measure_round_trip(report.substr(at, rtcp::size::report_block), arrival);
}

/// RFC 3550 section 6.4.1: from our report to theirs, less what it waited there.
void rtcp_session::measure_round_trip(str const& block, rtimestamp const& arrival) {
    std::uint32_t const last_sr = str2uint32(block.substr(block_last_sr_offset, 4));
    std::uint32_t const delay = str2uint32(block.substr(block_delay_offset, 4));
    for (moment const& report : known.reports) {
        if (last_sr == 0 || report.day.middle() != last_sr)
            continue;
        auto const round_trip = static_cast<std::int32_t>(moment::of(arrival).since(report) - delay);
        known.round_trip_ms =
            static_cast<int>(std::clamp(static_cast<long long>(round_trip) * 1000 >> 16, 0LL, 65535LL));
    }
}
