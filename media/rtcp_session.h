#pragma once

#include <cstdint>

#include "lib/extensions.h"
#include "lib/rtimestamp.h"
#include "lib/str.h"
#include "lib/timeout.h"
#include "media/ntp.h"
#include "media/reception.h"
#include "media/rtcp_packet.h"
#include "media/rtcp_xr.h"
#include "media/transmission.h"

/// The RTCP side of a channel: when a report is due, what it says, and what of the peer's reports the next one answers.
/// Compound packets go in and come out in the clear; knows neither audio nor sockets nor keys. A channel owns one.
///
/// With the extension `rtcp` reports are exact: losses counted (RFC 3550 appendix A.3), times those of the system's
/// clock, a receiver report while nothing is sent, the round trip from the peer's report blocks.
class rtcp_session {
public:
    rtcp_session() = default;
    rtcp_session(rtcp_session const&) = delete;
    rtcp_session& operator=(rtcp_session const&) = delete;

    /// Forgets the call: no report is due any more, the extended reports are switched off.
    void reset();
    /// Runs `report` in so many ticks, once.
    void schedule(long long delay, callback_argument const& report) { timer.callback(delay, report); }
    void unschedule() { timer.clear(); }

    /// Whether reports are exact; those of a peer are then to be given in the clear.
    bool is_exact() const { return exact; }

    /// Compound packet of sender report, source description and extended report. `call` is counted from 1 and stands
    /// in a log line. Empty, of exact ones, before there is an SSRC.
    str report(transmission const& sent, reception const& received, int call);
    /// A BYE if anything was received since the last one; else empty.
    str bye(str const& local_ssrc, str const& reason);

    /// Takes in a compound packet that arrived at `arrival` on the process clock. Of the peer's report blocks those
    /// about local_ssrc count.
    void receive(str const& compound, str const& local_ssrc, rtimestamp const& arrival);

    /// What the extended reports say (RFC 3611).
    rtcp_xr& extended() { return xr; }

private:
    void receive_sender_report(str const& report, str const& local_ssrc, rtimestamp const& arrival);
    void receive_exactly(int type, str const& report, str const& local_ssrc, rtimestamp const& arrival);
    void measure_round_trip(str const& block, rtimestamp const& arrival);
    str report_exactly(transmission const& sent, reception const& received);
    rtcp::report_block exact_block(reception const& received);
    bool has_sent(transmission const& sent);

    /// What a call leaves.
    struct history {
        bool received = false;    ///< anything since the last BYE
        int packets_lost = 0;     ///< in the report blocks; nothing counts it up
        str last_sr;              ///< middle 32 bits of the NTP time of the peer's last sender report
        rtimestamp last_sr_time;  ///< when it arrived
        int round_trip_ms = 0;    ///< what the peer's report tells of the delay

        // Exact reports only.
        str last_sr_ssrc;                        ///< whose it was
        moment last_sr_moment;                   ///< when it arrived
        moment reports[4];                       ///< sent, the newest first
        str source;                              ///< SSRC that `losses` are of
        loss_interval losses;                    ///< since the last report
        std::uint32_t packets_sent[2] = {0, 0};  ///< at the last report and at the one before
    };

    bool exact = extensions.rtcp;
    history known;
    rtcp_xr xr;
    timeout timer;
};
