#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/fxsctl/rtcp_reader.h"
#include "tools/fxsctl/settings.h"
#include "tools/protocol/description.h"

/// What fxsctl prints: lines of text for people, or JSON objects, one a line, for programs.
namespace fxsctl {

enum class origin {
    report,   ///< sent by the process
    command,  ///< sent to the process
    result,   ///< found out by fxsctl itself
};

/// "open call=0 rtp_port=40000 rtcp_port=40001", texts as protocol::quoted() writes them.
std::string text_line(protocol::description const& message);

/// Wall-clock time in UTC, "2024-05-01T12:00:00.123Z".
std::string time_stamp();

/// Prints a message at once. Text: text_line(). JSON: {"report":"open","call":0,"rtp_port":40000,"rtcp_port":40001},
/// with the origin first; bytes that are no UTF-8 become U+FFFD. With `stamped`, text starts with the time and "<"
/// (report) or
/// ">", and JSON ends with "time".
void print(settings const& global, origin from, protocol::description const& message, bool stamped = false);

/// Prints the copy of an RTCP packet, decoded. Text: the line of the report, then one line for each packet and block;
/// the bytes only of what cannot be read. JSON: one line with the report's fields and "srtcp", "plain" (the bytes, when
/// they were decrypted) and "decoded".
void print_rtcp(settings const& global, protocol::rtcp_copy const& copy, rtcp_reading const& reading, bool stamped);

/// Prints the quality of calls. Text: a table. JSON: a line for each call, {"result":"quality","call":0,...}.
void print_quality(settings const& global, rtcp_view::quality_tracker const& tracker);

}  // namespace fxsctl
