#pragma once

#include "lib/str.h"

/// Which blocks of the RTCP extended reports are sent (RFC 3611 section 5.1 has the words).
struct xr_mode {
    int loss_rle_max = 0;    ///< largest loss run-length block in bytes; 0: off
    int dup_rle_max = 0;     ///< the same for the duplicate block
    int rcpt_times_max = 0;  ///< and the receipt times
    bool stat_summary = false;
    bool voip_metrics = false;
    bool rcvr_rtt = false;  ///< receiver reference time, and answers to the peer's

    /// Reads words separated by blanks, ignoring case: "pkt-loss-rle", "pkt-dup-rle", "pkt-rcpt-times" (each optionally
    /// followed by "=" and the largest block size in bytes, else 65536), "rcvr-rtt", "stat-summary", "voip-metrics".
    /// Other words are ignored; no word switches every block off.
    static xr_mode parse(str const& text);
    /// Whether some block is on.
    bool any() const;
};
