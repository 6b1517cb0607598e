#include "media/rtcp_xr.h"

#include <algorithm>
#include <climits>

#include "lib/bytes.h"
#include "lib/log_line.h"

namespace {

constexpr int events_before_first = 16;  // room for packets that overtook the first one
constexpr int default_largest_bytes = 65536;
constexpr int jitter_gain = 16;  // RFC 3550 section 6.4.1
constexpr int xr_header_bytes = 8;
constexpr int rrtr_block = 4;  // RFC 3611 section 4.4
constexpr int rrtr_ntp_middle = 6;

}  // namespace

void rtcp_xr::packet_event::add(std::uint32_t rtp_timestamp, std::uint32_t arrival) {
    if (count == 0) {
        timestamp = rtp_timestamp;
        time = arrival;
    }
    count++;
}

void rtcp_xr::clear() {
    *this = rtcp_xr();
}

void rtcp_xr::set_mode(str const& mode) {
    if (!mode.empty())
        log_line(6, "RTCP-XR mode %s", arg_str(mode));
    loss_rle_max = dup_rle_max = rcpt_times_max = 0;
    stat_summary = voip_metrics = rcvr_rtt = false;

    struct {
        char const* word;
        int rtcp_xr::*largest;
    } const sized[] = {
        {"pkt-loss-rle", &rtcp_xr::loss_rle_max},
        {"pkt-dup-rle", &rtcp_xr::dup_rle_max},
        {"pkt-rcpt-times", &rtcp_xr::rcpt_times_max},
    };
    struct {
        char const* word;
        bool rtcp_xr::*flag;
    } const flags[] = {
        {"rcvr-rtt", &rtcp_xr::rcvr_rtt},
        {"stat-summary", &rtcp_xr::stat_summary},
        {"voip-metrics", &rtcp_xr::voip_metrics},
    };
    for (str rest = mode.get_rest(0, ' '); !rest.empty(); rest = rest.get_rest(1, ' ')) {
        str const word = rest.get_field(0, str::space);
        int const equals = word.find(str("="));
        str const name = equals < 0 ? word : word.leftstr(equals);
        str const value = equals < 0 ? str::null : word.substr(equals + 1);
        for (auto const& known : sized)
            if (name.icmp(known.word))
                this->*known.largest = value.empty() ? default_largest_bytes : value.value();
        for (auto const& known : flags)
            if (name.icmp(known.word))
                this->*known.flag = true;
    }
    active = stat_summary || voip_metrics || rcvr_rtt || loss_rle_max >= 1 || dup_rle_max >= 1 ||
             rcpt_times_max >= 1;
}

void rtcp_xr::monitor(int ext_seq, int rtp_timestamp, int rx_time) {
    if (event_count == 0)
        base_seq = wrapping_add(ext_seq, -events_before_first);
    std::uint32_t const i = static_cast<std::uint32_t>(ext_seq) - static_cast<std::uint32_t>(base_seq);
    if (i >= event_window)
        return;
    if (events[i].count == 0)
        event_count++;
    end_seq = std::max(end_seq, ext_seq);
    events[i].add(static_cast<std::uint32_t>(rtp_timestamp), static_cast<std::uint32_t>(rx_time));
}

void rtcp_xr::monitor_jitter_buffer_size(int ms) {
    jb_sum = wrapping_add(jb_sum, ms);
    jb_samples++;
    jb_max = std::max(jb_max, ms);
}

int rtcp_xr::calculate_jitter() {
    jitter_count = jitter_max = jitter_sum = 0;
    jitter_min = INT_MAX;
    jitter_square_sum = 0;
    long long jitter = 0;
    int unpaired = event_count;
    for (int i = 0; i < event_window - 1 && unpaired > 0; i++) {
        packet_event const& a = events[i];
        packet_event const& b = events[i + 1];
        if (a.count == 0 || b.count == 0)
            continue;
        unpaired--;
        std::uint32_t const difference = b.timestamp - a.timestamp - (b.time - a.time);
        std::uint32_t const magnitude = std::min(difference, 0u - difference);
        int const transit = static_cast<int>(std::min<std::uint32_t>(magnitude, INT_MAX));
        jitter_min = std::min(jitter_min, transit);
        jitter_max = std::max(jitter_max, transit);
        jitter_sum = wrapping_add(jitter_sum, transit);
        jitter_count++;
        jitter_square_sum = wrapping_add(jitter_square_sum, static_cast<long long>(transit) * transit);
        jitter += (transit - jitter) / jitter_gain;
    }
    return static_cast<int>(jitter);
}

void rtcp_xr::process_report(str const& packet, rtimestamp const& arrival) {
    for (int at = xr_header_bytes; packet.length() - at >= 4;) {
        if (packet[at] == rrtr_block && packet.length() - at >= rrtr_ntp_middle + 4) {
            lrr = packet.substr(at + rrtr_ntp_middle, 4);
            lrr_time = arrival;
        }
        at += 4 * str2int16(packet.substr(at + 2, 2)) + 4;
    }
}

str rtcp_xr::get_packet(str const& remote_ssrc, str const& local_ssrc, int peer_delay) {
    constexpr unsigned char version_2_count_0 = 0x80;
    constexpr unsigned char extended_report_type = 207;
    if (event_count == 0)
        return str();
    log_line(9, "Get RTCP-XR");
    str const blocks = get_blocks(remote_ssrc, peer_delay);
    end_period();
    return str(version_2_count_0, extended_report_type) +
           utils::int2str(static_cast<unsigned>((blocks.length() + 4) / 4), 2) + local_ssrc + blocks;
}

void rtcp_xr::end_period() {
    begin_seq = end_seq;
    for (packet_event& event : events)
        event.clear();
    event_count = 0;
    jb_max = jb_sum = jb_samples = 0;
}
