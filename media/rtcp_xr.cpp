#include "media/rtcp_xr.h"

#include <algorithm>

#include "lib/bytes.h"
#include "lib/log.h"
#include "lib/rtcp_numbers.h"
#include "media/xr_blocks.h"

namespace {

constexpr int xr_header_bytes = 8;
constexpr int most_thinning = 15;

/// The block of the least thinning that is shorter than the limit; empty when none is or nothing is wanted.
template <typename builder>
str thin_until_shorter(int largest_bytes, builder const& build) {
    for (int thinning = 0; largest_bytes > 0 && thinning <= most_thinning; thinning++) {
        str block = build(thinning);
        if (block.length() < largest_bytes)
            return block;
    }
    return str();
}

}  // namespace

void rtcp_xr::set_mode(str const& text) {
    if (!text.empty())
        log_line(6, "RTCP-XR mode %s", arg_str(text));
    mode = xr_mode::parse(text);
}

void rtcp_xr::monitor(int ext_seq, int rtp_timestamp, int rx_time) {
    if (events.add(ext_seq, static_cast<std::uint32_t>(rtp_timestamp), static_cast<std::uint32_t>(rx_time)))
        end_seq = std::max(end_seq, ext_seq);
}

str rtcp_xr::get_packet(str const& remote_ssrc, str const& local_ssrc, int peer_delay, int codec) {
    constexpr unsigned char version_2_count_0 = 0x80;
    constexpr unsigned char type = rtcp::packet_type::extended_report;
    if (events.empty())
        return str();
    log_line(9, "Get RTCP-XR");
    str const blocks = get_blocks(remote_ssrc, peer_delay, codec);
    end_period();
    if (exact && blocks.empty())
        return str();
    return str(version_2_count_0, type) + utils::int2str(static_cast<unsigned>((blocks.length() + 4) / 4), 2) +
           local_ssrc + blocks;
}

str rtcp_xr::get_blocks(str const& remote_ssrc, int peer_delay, int codec) {
    if (!started)
        begin_seq = static_cast<int>(static_cast<std::uint32_t>(events.get_first()) - 1);
    started = true;
    str blocks = get_run_lengths(remote_ssrc);
    if (mode.stat_summary)
        blocks += xr::stat_summary_block{remote_ssrc, events.get_sequences(), events.get_transit_differences()}.build();
    if (mode.voip_metrics) {
        voip.add_period(events);
        blocks +=
            (exact ? voip.get_exact_block(remote_ssrc, peer_delay, codec) : voip.get_block(remote_ssrc, peer_delay))
                .build();
    }
    if (mode.rcvr_rtt)
        blocks += get_reference_times(remote_ssrc);
    return blocks;
}

str rtcp_xr::get_run_lengths(str const& remote_ssrc) const {
    str const losses = thin_until_shorter(
        mode.loss_rle_max, [&](int thinning) { return xr::build_loss_rle(events, begin_seq, thinning, remote_ssrc); });
    str const duplicates = thin_until_shorter(mode.dup_rle_max, [&](int thinning) {
        return xr::build_duplicate_rle(events, begin_seq, thinning, remote_ssrc);
    });
    str const times = thin_until_shorter(mode.rcpt_times_max, [&](int thinning) {
        return xr::receipt_times_block{remote_ssrc, thinning, events}.build();
    });
    return losses + duplicates + times;
}

/// Our reference time, and the answer to the peer's, which is given once.
str rtcp_xr::get_reference_times(str const& remote_ssrc) {
    rtimestamp const now = rtimestamp::now();
    str blocks = exact ? get_exact_reference_times(remote_ssrc) : xr::reference_time_block{now}.build();
    if (lrr.length() == 4 && !exact)
        blocks += xr::dlrr_block{remote_ssrc, lrr, now.diff_ticks(lrr_time)}.build();
    lrr.clear();
    lrr_time.clear();
    return blocks;
}

str rtcp_xr::get_exact_reference_times(str const& remote_ssrc) const {
    moment const now = moment::of(rtimestamp::now());
    str blocks = xr::exact_reference_time_block{now.day}.build();
    if (lrr.length() == 4)
        blocks += xr::dlrr_block::build_exact(remote_ssrc, lrr, now.since(lrr_moment));
    return blocks;
}

void rtcp_xr::end_period() {
    begin_seq = end_seq;
    events.clear();
    voip.end_period();
}

void rtcp_xr::process_report(str const& packet, rtimestamp const& arrival) {
    for (int at = xr_header_bytes; packet.length() - at >= 4;) {
        int const middle = at + xr::reference_middle_offset;
        if (packet[at] == rtcp::xr_block_type::receiver_reference_time && packet.length() - middle >= 4) {
            lrr = packet.substr(middle, 4);
            lrr_time = arrival;
            if (exact)
                lrr_moment = moment::of(arrival);
        }
        at += 4 * str2int16(packet.substr(at + 2, 2)) + 4;
    }
}
