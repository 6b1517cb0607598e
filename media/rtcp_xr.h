#pragma once

#include <cstdint>

#include "lib/rtimestamp.h"
#include "lib/str.h"
#include "media/burst_tracker.h"
#include "media/rle_report_block.h"

/// RTCP extended reports (RFC 3611) of one channel: collects per-packet events between two reports and turns them
/// into the report blocks that the mode text asks for. It sees extended sequence numbers, RTP timestamps and arrival
/// times (both in 8 kHz units, wrapping); it knows no packets and no sockets. What is received from the peer is only
/// evaluated for its receiver reference time. A channel owns one.
class rtcp_xr {
public:
    /// What is known of one sequence number since the last report.
    struct packet_event {
        std::uint32_t timestamp = 0;  ///< of the first copy
        std::uint32_t time = 0;       ///< arrival of the first copy
        int count = 0;                ///< copies received

        void add(std::uint32_t rtp_timestamp, std::uint32_t arrival);
        void clear() { *this = packet_event(); }
    };
    using rle_report_block = ::rle_report_block;

    /// Forgets everything, the mode included.
    void clear();

    /// Chooses the blocks by words separated by blanks, ignoring case: "pkt-loss-rle", "pkt-dup-rle",
    /// "pkt-rcpt-times" (each optionally followed by "=" and the largest block size in bytes, else 65536),
    /// "rcvr-rtt", "stat-summary", "voip-metrics" (RFC 3611 section 5.1). Other words are ignored; no word switches
    /// every block off.
    void set_mode(str const& mode);
    /// Whether some block is switched on.
    bool is_active() const { return active; }

    /// An accepted packet that is still to be played.
    void monitor(int ext_seq, int rtp_timestamp, int rx_time);
    /// A packet that came too late or twice.
    void add_discard() { discarded = wrapping_add(discarded, 1); }
    /// Milliseconds of audio in the jitter buffer at a play-out.
    void monitor_jitter_buffer_size(int ms);

    /// Interarrival jitter over the events since the last report, in RTP timestamp units. Its statistics go into the
    /// next summary block.
    int calculate_jitter();
    /// The XR packet with all wanted blocks, length field set; empty when nothing was monitored since the last one.
    /// Ends the period. The SSRCs are 4 bytes each, the delay is in ms.
    str get_packet(str const& remote_ssrc, str const& local_ssrc, int peer_delay);
    /// Evaluates an XR packet from the peer.
    void process_report(str const& packet, rtimestamp const& arrival);

private:
    static constexpr int event_window = 512;

    /// Sum modulo 2^32 or 2^64.
    static int wrapping_add(int a, int b) {
        return static_cast<int>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
    }
    static long long wrapping_add(long long a, long long b) {
        return static_cast<long long>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
    }
    int seq_at(int i) const { return wrapping_add(base_seq, i); }
    template <typename action>
    void for_each_event(action const& act) const;
    void calculate_voip_metrics();
    str get_rle_block(str const& remote_ssrc, int block_type, int thinning) const;
    str get_receipt_times(str const& remote_ssrc, int thinning) const;
    template <typename builder>
    static str thin_until_shorter(int largest_bytes, builder const& build);
    str get_loss_rle(str const& remote_ssrc) const;
    str get_dup_rle(str const& remote_ssrc) const;
    str get_rcpt_times(str const& remote_ssrc) const;
    str get_stat_summary(str const& remote_ssrc) const;
    str get_voip_metrics(str const& remote_ssrc, int peer_delay) const;
    str get_rrtrb(rtimestamp const& now) const;
    str get_dlrr_block(str const& remote_ssrc, rtimestamp const& now);
    str get_blocks(str const& remote_ssrc, int peer_delay);
    void end_period();

    bool active = false;
    int loss_rle_max = 0;  ///< largest block in bytes; 0: off
    int dup_rle_max = 0;
    int rcpt_times_max = 0;
    bool stat_summary = false;
    bool voip_metrics = false;
    bool rcvr_rtt = false;

    int begin_seq = 0;     ///< the sequence number before the first one of the next report
    int end_seq = 0;       ///< highest one monitored
    bool started = false;  ///< the first report has fixed begin_seq
    packet_event events[event_window];
    int event_count = 0;  ///< entries of `events` in use
    int base_seq = 0;     ///< of events[0]

    str lrr;              ///< middle 32 bits of the NTP time of the peer's receiver reference time
    rtimestamp lrr_time;  ///< when it arrived

    burst_tracker bursts;
    int last_fed_seq = 0;  ///< last one given to `bursts`
    int discarded = 0;
    int jb_max = 0;  ///< ms
    int jb_sum = 0;
    int jb_samples = 0;

    int jitter_count = 0;
    int jitter_min = 0;
    int jitter_max = 0;
    int jitter_sum = 0;
    long long jitter_square_sum = 0;
};
