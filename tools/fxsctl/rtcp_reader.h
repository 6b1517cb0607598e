#pragma once

#include <map>
#include <vector>

#include "tools/protocol/commands.h"
#include "tools/protocol/reports.h"
#include "tools/rtcp/call_quality.h"
#include "tools/rtcp/srtcp.h"

namespace fxsctl {

struct rtcp_reading {
    /// "none": it was not encrypted; "decrypted"; "no key", "wrong key": it is encrypted and stays so.
    char const* srtcp = "none";
    protocol::bytes plain;                   ///< the compound packet; as copied when it cannot be read
    std::vector<rtcp_view::packet> packets;  ///< none when it cannot be read
    bool readable() const { return !packets.empty(); }
};

/// What a quality_tracker takes. `time_ms` of the copy, on any steady scale.
rtcp_view::rtcp_observation observation(protocol::rtcp_copy const& copy, rtcp_reading const& reading,
                                        std::int64_t time_ms);

/// Reads the copies of RTCP packets that the process reports; received SRTCP it decrypts with the keys that it knows.
class rtcp_reader {
public:
    /// The keys of a media command, for every call.
    void use(protocol::media_command const& keys);

    /// Takes the keys out of commands to the process. A call's keys stay until others replace them: its last reports
    /// come after its end, and the authentication tag shows when a key does not fit.
    void learn(protocol::byte_view commands);

    rtcp_reading read(protocol::rtcp_copy const& copy) const;

private:
    using key_list = std::vector<rtcp_view::srtcp_key>;

    key_list for_all;
    std::map<std::uint16_t, key_list> by_call;
};

}  // namespace fxsctl
