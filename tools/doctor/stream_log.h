#pragma once

#include <deque>
#include <map>
#include <tuple>
#include <vector>

#include "tools/doctor/observation.h"
#include "tools/doctor/packet_watch.h"

namespace doctor {

/// Collects the packets of one way of a call and makes streams of them.
class stream_log {
public:
    /// What is no RTP packet (version 2, 12 bytes) is left out. `time_s` since the window began.
    void add(seen_datagram const& one, double time_s, protocol::address const& far_end);

    /// `codecs`: codec by payload type where that is known; otherwise by RFC 3551 table 4.
    std::vector<stream> streams(std::map<int, int> const& codecs) const;

private:
    struct packet {
        double time_s;
        std::uint32_t timestamp;
        protocol::bytes payload;
    };
    struct track {
        stream facts;
        std::deque<packet> packets;
    };
    static stream finish(track const& one, int codec);

    std::map<std::tuple<std::string, std::uint32_t, int>, track> tracks;
};

/// The sender's clock against ours from pairs of arrival time and RTP timestamp at 8 kHz; false: they don't show it.
/// The quickest packet of each of eight parts of the time is what counts, so that delays on the way play no part; the
/// doubt is large unless the clock runs away in all of them.
bool measure_drift(std::vector<std::pair<double, std::uint32_t>> const& packets, double& ppm, double& doubt_ppm);

/// Level, silence, clipping and law of G.711 payloads.
stream::sound analyse_sound(std::vector<protocol::bytes> const& payloads, bool a_law);

/// Whether bytes are as evenly spread as those of a cipher; false of fewer than 2000.
bool looks_encrypted(std::vector<protocol::bytes> const& payloads);

}  // namespace doctor
