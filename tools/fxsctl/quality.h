// What `monitor --summary` and `quality` share: the quality of calls out of copies of RTCP packets.
#pragma once

#include "tools/fxsctl/rtcp_reader.h"
#include "tools/fxsctl/settings.h"
#include "tools/rtcp/call_quality.h"

namespace fxsctl {

// Milliseconds since 1970.
std::int64_t now_ms();

rtcp_view::rtcp_observation observation(protocol::rtcp_copy const& copy, rtcp_reading const& reading,
                                        std::int64_t time_ms);

// Text: a table. JSON: a line for each call, {"result":"quality","call":0,...}.
void print_quality(settings const& global, rtcp_view::quality_tracker const& tracker);

}  // namespace fxsctl
