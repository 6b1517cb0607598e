// The copy of an RTCP packet, decoded.
#pragma once

#include "tools/fxsctl/output.h"
#include "tools/fxsctl/rtcp_reader.h"

namespace fxsctl {

// Text: the line of the report, then one line for each packet and block; the bytes only of what cannot be read.
// JSON: one line with the report's fields and "srtcp", "plain" (the bytes, when they were decrypted) and "decoded".
void print_rtcp(settings const& global, protocol::rtcp_copy const& copy, rtcp_reading const& reading,
                bool stamped);

}  // namespace fxsctl
