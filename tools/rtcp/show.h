#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/rtcp/call_quality.h"

/// RTCP packets, and the quality of calls, for people and for programs.
namespace rtcp_view {

/// One object per packet. First its "type" ("SR", ..., "malformed" when it has no header); blocks of an extended report
/// start with "block" ("loss-rle", "dup-rle", "rcpt-times", "rrtr", "dlrr", "stat-summary", "voip-metrics", "unknown").
/// SSRCs, LSR, LRR and bytes are hexadecimal text, shares are in percent, times in ms where the name says so. Something
/// wrong stands in "problem", bytes that were not understood in "unread". Metrics that were not measured are null.
nlohmann::ordered_json to_json(packet const& shown);
nlohmann::ordered_json to_json(std::vector<packet> const& compound);

/// The same as lines: one for each packet, below it one for each block, "name=value" in each. Every line starts with
/// `indent` blanks and ends with a line end.
std::string to_text(std::vector<packet> const& compound, unsigned indent);

/// One flat object; docs/man/fxsctl.1 explains the names. What was not reported is null.
nlohmann::ordered_json to_json(call_quality const& call);

/// A table with a column for each call; the rows are those of to_json() that are known for at least one
/// call. Empty without calls.
std::string to_table(std::vector<call_quality> const& calls);

/// 1/256 as percent and 1/65536 s as milliseconds, with one digit behind the point.
double percent(unsigned part_of_256);
double ms_of_delay(std::uint32_t delay);
double one_digit(double value);

}  // namespace rtcp_view
