// What `monitor --summary` and `quality` share: the quality of calls out of copies of RTCP packets.
#pragma once

#include "tools/fxsctl/rtcp_reader.h"
#include "tools/fxsctl/settings.h"
#include "tools/rtcp/call_quality.h"

namespace fxsctl {

// Milliseconds since 1970.
std::int64_t now_ms();

rtcp_view::rtcp_observation observation(const protocol::rtcp_copy& copy, const rtcp_reading& reading,
                                        std::int64_t time_ms);

// Text: a table. JSON: a line for each call, {"result":"quality","call":0,...}.
void print_quality(const settings& global, const rtcp_view::quality_tracker& tracker);

}  // namespace fxsctl
