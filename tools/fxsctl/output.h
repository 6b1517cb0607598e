// One line of output per message: for people (print_text.cpp) or for programs (print_json.cpp).
#pragma once

#include <string>

#include "tools/fxsctl/settings.h"
#include "tools/protocol/description.h"

namespace fxsctl {

enum class origin {
    report,   // sent by the process
    command,  // sent to the process
    result,   // found out by fxsctl itself
};

// "open call=0 rtp_port=40000 rtcp_port=40001". Texts with blanks are quoted, bytes that are no printable ASCII are \xNN.
std::string text_line(protocol::description const& message);

// {"report":"open","call":0,"rtp_port":40000,"rtcp_port":40001}. The first key is the origin. `time` ("" for none)
// becomes the last one. Bytes that are no UTF-8 become U+FFFD.
std::string json_line(origin from, protocol::description const& message, std::string const& time);

// Wall-clock time in UTC, "2024-05-01T12:00:00.123Z".
std::string time_stamp();

// Prints one line to standard output at once. With `stamped`, text lines start with the time and "<" (report) or ">".
void print(settings const& global, origin from, protocol::description const& message, bool stamped = false);

}  // namespace fxsctl
