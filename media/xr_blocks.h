#pragma once

#include <cstdint>

#include "lib/rtimestamp.h"
#include "lib/str.h"
#include "media/ntp.h"
#include "media/xr_events.h"

/// The blocks of an RTCP extended report (RFC 3611 section 4) as values; build() gives the bytes. SSRCs are 4 bytes,
/// multi-byte fields big-endian unless said otherwise. Every block starts with
///
///     byte 0   block type
///     byte 1   specific to the type
///     2-3      length in 32-bit words minus one
namespace xr {

/// Receipt times (section 4.3): byte 1 thinning; 4-7 SSRC; then groups of neighbouring sequence numbers:
///
///     0-1      first number
///     2-3      number behind the last
///     4..      4 bytes of arrival time each, 8 kHz
///
/// Taken are the packets whose sequence number is a multiple of 2^thinning.
struct receipt_times_block {
    str ssrc;
    int thinning;  ///< 0..15
    xr_events const& events;

    str build() const;
};

/// Statistics summary (section 4.6): byte 1 0xE0 (loss, duplicates and jitter are reported, no TTL); 4-7 SSRC;
///
///     8-9      lowest sequence number        24-27    largest
///     10-11    highest                       28-31    mean
///     12-15    lost                          32-35    standard deviation, of the transit differences
///     16-19    duplicates                    36-39    0 (TTL)
///     20-23    smallest
///
struct stat_summary_block {
    str ssrc;
    xr_events::sequence_summary sequences;
    xr_events::transit_differences transits;

    str build() const;
};

/// VoIP metrics (section 4.7): byte 1 0; 4-7 SSRC;
///
///     8        loss rate, 1/256              22       RERL: unavailable
///     9        discard rate                  23       Gmin
///     10       burst density                 24-27    R factors, MOS: 0
///     11       gap density                   28-29    round trip again, where receiver configuration belongs
///     12-13    burst duration, ms            30-31    nominal jitter-buffer delay, ms
///     14-15    gap duration, ms              32-33    largest delay, ms, low byte first
///     16-17    round trip, ms                34-35    0xFFFF (absolute maximum)
///     18-19    end system delay: 0
///     20, 21   signal and noise level: unavailable
///
/// Peers depend on bytes 28-29 and on the order of 32-33. An exact block has instead
///
///     24, 25   R factor; that of another segment: unavailable
///     26, 27   MOS of listening and of conversation, 1/10
///     28, 29   receiver configuration: concealment enhanced with the extension `playout`, else none; adaptive buffer;
///     0 32-33    largest delay, ms, high byte first 34-35    largest delay that the buffer can come to, ms
struct voip_metrics_block {
    str ssrc;
    unsigned char loss_rate = 0;
    unsigned char discard_rate = 0;
    unsigned char burst_density = 0;
    unsigned char gap_density = 0;
    int burst_duration_ms = 0;
    int gap_duration_ms = 0;
    int round_trip_ms = 0;
    int jitter_buffer_nominal_ms = 0;
    int jitter_buffer_max_ms = 0;
    bool exact = false;
    // Exact blocks only; rtcp::unavailable: not known.
    int r_factor = 0;
    int listening_mos_x10 = 0;
    int conversational_mos_x10 = 0;

    str build() const;
};

/// Receiver reference time (section 4.4): byte 1 0; 4-7 NTP seconds; 8-11 fraction.
///
/// The seconds start one second off from, and the fraction has a thousandth of the scale of, the sender report's;
/// peers depend on both.
struct reference_time_block {
    rtimestamp now;  ///< process clock

    str build() const;
};

/// The same with the sender report's time, for whoever measures a round trip with it.
struct exact_reference_time_block {
    ntp_time sent;

    str build() const;
};

/// DLRR (section 4.5) with one report: byte 1 0; 4-7 SSRC; 8-11 middle of the reference time answered; 12-15 delay
/// since it arrived.
///
/// The delay's unit is 1/65536 s only up to 65 ms: its low 32 bits are taken before the division.
struct dlrr_block {
    str ssrc;
    str last_reference;  ///< 4 bytes, middle of the NTP time
    long long delay;     ///< ticks

    str build() const;
    /// The same with a delay in its unit, 1/65536 s.
    static str build_exact(str const& ssrc, str const& last_reference, std::uint32_t delay);
};

/// Where the middle 32 bits of the NTP time stand in a reference time block.
constexpr int reference_middle_offset = 6;

/// Whether a sequence number is a multiple of 2^thinning.
inline bool survives(int sequence, int thinning) {
    return (static_cast<std::uint32_t>(sequence) & ((1u << thinning) - 1)) == 0;
}

/// Loss run lengths (section 4.1) or duplicate run lengths (4.2) of the period's packets that survive thinning;
/// `before` is the sequence number before the first one reported. See rle_report_block for the bytes.
str build_loss_rle(xr_events const& events, int before, int thinning, str const& ssrc);
str build_duplicate_rle(xr_events const& events, int before, int thinning, str const& ssrc);

}  // namespace xr
