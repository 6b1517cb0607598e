#pragma once

#include "media/burst_tracker.h"
#include "media/loss_bursts.h"
#include "media/xr_blocks.h"
#include "media/xr_events.h"

/// What the VoIP metrics block of an extended report tells: losses in bursts and gaps and discarded packets over the
/// whole call, jitter-buffer sizes since the last report.
class voip_statistics {
public:
    /// A packet came too late or twice.
    void add_discard();
    /// Milliseconds of audio in the jitter buffer at a play-out.
    void add_jitter_buffer_size(int ms);
    /// The packets of a period, to be classified.
    void add_period(xr_events const& events);
    /// Forgets the jitter-buffer sizes.
    void end_period();

    xr::voip_metrics_block get_block(str const& remote_ssrc, int round_trip_ms) const;
    /// The same with densities in their unit and a rating of the call, whose codec it takes.
    xr::voip_metrics_block get_exact_block(str const& remote_ssrc, int round_trip_ms, int codec) const;

private:
    void add_lost(std::uint32_t n);

    burst_tracker bursts;
    loss_bursts exact_bursts;
    std::uint32_t first_time = 0, last_time = 0;  ///< of the packets in `exact_bursts`
    int last_fed = 0;                             ///< sequence number given to `bursts` last
    int discarded = 0;
    int jitter_buffer_max_ms = 0;
    int jitter_buffer_sum_ms = 0;
    int jitter_buffer_samples = 0;
};
