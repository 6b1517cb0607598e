#pragma once

#include <fxsmedia/values.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/rtcp/call_quality.h"

namespace fxsphone {

/// What is known of a call's media from the process's reports: the copies of its RTCP packets and the streams that it
/// takes up. Times are of the monotonic clock in ms.
class call_media {
public:
    /// The number that the control protocol gives the codec that is sent; R depends on it.
    void codec_chosen(int number) { tracker.codec_chosen(0, number); }
    /// The copy of an RTCP packet, from the far end or to it. What cannot be read is passed over.
    void rtcp(bool received, fxsmedia::byte_view packet, std::int64_t now_ms);
    /// The first packet of a new source was received.
    void stream_began(std::int64_t now_ms) { heard_ms = now_ms; }

    /// When the last sign of packets from the far end came; with RTCP that is up to 5 s late. 0: never.
    std::int64_t last_heard_ms() const { return heard_ms; }
    /// The fields of `fxsctl quality --json`; null without any RTCP.
    nlohmann::ordered_json quality() const;

private:
    rtcp_view::quality_tracker tracker;
    std::optional<std::uint32_t> sequence;  ///< the highest that the process has reported to the far end
    std::int64_t heard_ms = 0;
};

}  // namespace fxsphone
