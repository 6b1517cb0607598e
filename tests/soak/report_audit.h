#pragma once

#include <fnmatch.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "tests/soak/gauges.h"

/// Log lines of healthy calls, as shell patterns behind their level.
inline constexpr char const* explained_lines[] = {
    "8 rtp *", "8 rtcp *", "8 loop count *", "9 RTCP: *", "9 RTCP report: *", "9 RTCP: Done.",
    "9 Get RTCP-XR", "9 RTCP not enrypted", "9 received rtcp msg on tcp socket",
    "9 Trying to open ports * and *", "7 RTCP-XR has no SSRC on call ?", "7 Open RTP port * and RTCP port *",
    "7 Send codec local ? remote *", "7 Map codec ? to *", "7 Set channel ? for call ?",
    "7 Reset channel for call ?", "8 Close call ?", "7 Receiving RTP from *", "7 Receiving SRTP from *",
    "5 SRTP Tx=* Rx=*", "6 RTCP-XR mode *", "6 Open *sdt?", "6 Close *sdt?", "7 Clear Tx",
    "7 Playback on channel ?", "7 Clear playback on channel ?", "7 Synth *", "5 reset base command 3",
    "5 Start session 127.0.0.1:*",
    // A network that loses and delays, a new SSRC with a new codec, a call that was off its line, an old key:
    "5 Burst begin: *", "5 Burst * end: *", "5 Resuming RTP playback", "5 Tuning to new SSRC",
    "7 jitter buffer deleted", "4 Dropped 10* SRTP packets with wrong MAC *",
    // A TCP peer that hangs up, strangers, a port that somebody else has:
    "7 RTP connection to * closed", "7 RTCP connection to * closed", "8 !!!!!!!!!!! TCP error code  *",
    "8 tcp control", "8 need to wait for more data to arrive", "8 no rtp *", "8 TCP rec send tunnel cmd",
    "0 UDP: bind() to port * failed", "0 UDPv6: bind() to port * failed"};

/// Takes every report of the process and asks of each why it came: what the calls of a soak don't explain is printed
/// and counted.
class report_audit {
public:
    void take(protocol::report const& report) {
        if (std::holds_alternative<protocol::heartbeat>(report)) {
            auto const now = steady::now();
            if (heartbeats++ > 0)
                longest_gap_s =
                    std::max(longest_gap_s, std::chrono::duration<double>(now - last_beat).count());
            last_beat = now;
        } else if (auto const* const line = std::get_if<protocol::log_line>(&report)) {
            log_lines++;
            std::string const text = std::to_string(line->level) + " " + line->text;
            auto const pattern = std::ranges::find_if(
                explained_lines, [&](char const* p) { return fnmatch(p, text.c_str(), 0) == 0; });
            pattern != std::end(explained_lines) ? void(counts[*pattern]++) : complain(text);
        } else if (std::holds_alternative<protocol::driver_result>(report)) {
            answers++;
        } else if (!std::holds_alternative<protocol::rtcp_copy>(report) &&
                   !std::holds_alternative<protocol::new_ssrc>(report) &&
                   !std::holds_alternative<protocol::srtp_verified>(report) &&
                   !std::holds_alternative<protocol::tunnel_data>(report)) {
            complain("report of kind " + std::to_string(report.index()));
        }
    }

    unsigned heartbeats = 0, answers = 0, log_lines = 0, unexplained = 0;
    double longest_gap_s = 0;                ///< between two heartbeats
    std::map<std::string, unsigned> counts;  ///< of each kind of log line

private:
    void complain(std::string const& about) {
        if (unexplained++ < 50)
            std::cout << "UNEXPLAINED " << about.substr(0, 200) << std::endl;
    }
    steady::time_point last_beat;
};
