#pragma once

#include <cstdint>

#include "lib/extensions.h"
#include "lib/rtimestamp.h"
#include "lib/str.h"
#include "media/ntp.h"
#include "media/voip_statistics.h"
#include "media/xr_events.h"
#include "media/xr_mode.h"

/// RTCP extended reports (RFC 3611) of one channel: collects what happens to packets between two reports and turns it
/// into the blocks that the mode asks for (media/xr_blocks.h). It sees extended sequence numbers, RTP timestamps and
/// arrival times (both in 8 kHz units, wrapping); it knows no packets and no sockets. What is received from the peer
/// is only evaluated for its receiver reference time. A channel owns one.
class rtcp_xr {
public:
    /// Forgets everything, the mode included.
    void clear() { *this = rtcp_xr(); }

    /// Chooses the blocks, see xr_mode::parse().
    void set_mode(str const& text);

    /// An accepted packet that is still to be played.
    void monitor(int ext_seq, int rtp_timestamp, int rx_time);
    /// A packet that came too late or twice.
    void add_discard() { voip.add_discard(); }
    /// Milliseconds of audio in the jitter buffer at a play-out.
    void monitor_jitter_buffer_size(int ms) { voip.add_jitter_buffer_size(ms); }

    /// Interarrival jitter over the events since the last report, in RTP timestamp units.
    int calculate_jitter() const { return events.get_transit_differences().jitter; }
    /// The XR packet with all wanted blocks, length field set; empty when nothing was monitored since the last one.
    /// Ends the period. The SSRCs are 4 bytes each, the delay is in ms. With the extension `rtcp` times, metrics and
    /// the rating of a call with that codec are exact, and a packet without blocks is empty.
    str get_packet(str const& remote_ssrc, str const& local_ssrc, int peer_delay, int codec = -1);
    /// Evaluates an XR packet from the peer that arrived at `arrival` on the process clock.
    void process_report(str const& packet, rtimestamp const& arrival);

private:
    str get_blocks(str const& remote_ssrc, int peer_delay, int codec);
    str get_run_lengths(str const& remote_ssrc) const;
    str get_reference_times(str const& remote_ssrc);
    str get_exact_reference_times(str const& remote_ssrc) const;
    void end_period();

    bool exact = extensions.rtcp;
    xr_mode mode;
    xr_events events;
    voip_statistics voip;

    int begin_seq = 0;     ///< the sequence number before the first one of the next report
    int end_seq = 0;       ///< highest one monitored
    bool started = false;  ///< the first report has fixed begin_seq

    str lrr;              ///< middle 32 bits of the NTP time of the peer's receiver reference time; empty: answered
    rtimestamp lrr_time;  ///< when it arrived
    moment lrr_moment;    ///< the same, for exact reports
};
