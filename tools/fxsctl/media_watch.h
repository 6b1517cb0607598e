#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "tools/fxsctl/rtcp_reader.h"

namespace fxsctl {

/// Notices by the process's own sender reports, which come every 2 s, that the media of a call stop and resume: two
/// reports with the same packet count, or the same highest sequence number received. So a stop is noticed within 4 s. A
/// direction that never had media does not stop; a call without an identifier is not seen. Reads no clock.
class media_watch {
public:
    struct change {
        std::uint16_t call = 0;
        bool received = false;  ///< from the network; otherwise from the line
        bool stopped = false;   ///< otherwise resumed
    };

    /// A report of the process about this call, read.
    std::vector<change> add(std::uint16_t call, std::vector<rtcp_view::packet> const& sent);
    /// The call was opened or ended: what follows is another one.
    void forget(std::uint16_t call) { known.erase(call); }

private:
    struct way {
        std::optional<std::uint32_t> count;
        bool runs = false;
        bool stopped = false;
    };
    /// What the new count means; nullopt: nothing new.
    static std::optional<bool> stops(way& one, std::uint32_t count);

    std::map<std::uint16_t, std::map<bool, way>> known;
};

}  // namespace fxsctl
