// Reads the copies of RTCP packets that the process reports, decrypting received SRTCP with keys it has picked up.
#pragma once

#include <map>
#include <vector>

#include "tools/protocol/commands.h"
#include "tools/protocol/reports.h"
#include "tools/rtcp/packet.h"
#include "tools/rtcp/srtcp.h"

namespace fxsctl {

struct rtcp_reading {
    // "none": it was not encrypted; "decrypted"; "no key", "wrong key": it is encrypted and stays so.
    char const* srtcp = "none";
    protocol::bytes plain;                   // the compound packet; as copied when it cannot be read
    std::vector<rtcp_view::packet> packets;  // none when it cannot be read
    bool readable() const { return !packets.empty(); }
};

class rtcp_reader {
public:
    // The keys of a media command, for every call.
    void use(protocol::media_command const& keys);

    // Looks for keys in commands on their way to the process. A call's keys stay until others replace them: its last
    // reports come after its end, and a key that is not the packet's own is noticed by the tag.
    void learn(protocol::byte_view commands);

    rtcp_reading read(protocol::rtcp_copy const& copy) const;

private:
    using key_list = std::vector<rtcp_view::srtcp_key>;

    key_list for_all;
    std::map<std::uint16_t, key_list> by_call;
};

}  // namespace fxsctl
