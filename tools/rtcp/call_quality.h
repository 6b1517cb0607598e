#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/rtcp/packet.h"

namespace rtcp_view {

struct reception_quality {
    std::optional<report_block> reported;  ///< the last report block
    std::optional<voip_metrics> metrics;   ///< the last one, XR
    std::optional<std::uint64_t> lost;     ///< sums over all statistics summaries, XR
    std::optional<std::uint64_t> duplicates;
    bool counts_losses = true;  ///< in report blocks; fxsmedia never does
};

/// The quality of calls, from the copies of their RTCP packets: what each end reported last, and the round trip
/// computed from both. Reads no clock and prints nothing.
///
/// "Own" is what the process measured of the stream it receives (it stands in what it sends), "peer" what the peer
/// measured of the stream that the process sends.
struct call_quality {
    unsigned call = 0;
    std::string call_id;
    unsigned reports_sent = 0;
    unsigned reports_received = 0;
    unsigned reports_unreadable = 0;  ///< of the received ones: encrypted, no key
    std::optional<sender_info> sent;
    std::optional<sender_info> peer_sent;
    reception_quality own;
    reception_quality peer;
    std::optional<double> round_trip_ms;  ///< the last one
    std::optional<double> round_trip_max_ms;
    std::optional<int> codec;  ///< the one sent, as number of lib/protocol.h
};

struct rtcp_observation {
    unsigned call = 0;
    std::string call_id;
    bool received = false;
    bool readable = true;
    std::int64_t time_ms = 0;  ///< of the copy, on any steady scale
    std::vector<packet> packets;
};

class quality_tracker {
public:
    void add(rtcp_observation const& seen);

    /// The call index was opened again: what follows is another call, even with the same identifier.
    void call_opened(unsigned call);

    /// A media command chose this codec to send.
    void codec_chosen(unsigned call, int codec) { codecs[call] = codec; }

    /// In the order in which they began.
    std::vector<call_quality> calls() const;

private:
    struct sent_report {
        std::uint32_t ntp_middle = 0;
        std::int64_t time_ms = 0;
    };
    struct tracked {
        call_quality quality;
        bool over = false;
        std::optional<std::uint32_t> ssrc;  ///< ours, as last sent
        std::deque<sent_report> sent;       ///< the last few, for the round trip
    };

    tracked& find(rtcp_observation const& seen);
    static void note_origin(tracked& one, source_description const& s);
    static void add_report(tracked& one, report const& r, rtcp_observation const& seen);
    static void add_blocks(tracked& one, extended_report const& x, bool received);
    static void note_round_trip(tracked& one, report_block const& block, std::int64_t arrival_ms);

    std::vector<tracked> known_calls;
    std::map<unsigned, int> codecs;  ///< by call index
};

}  // namespace rtcp_view
