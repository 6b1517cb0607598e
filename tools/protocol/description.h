#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "tools/protocol/reports.h"

namespace protocol {

/// A message taken apart into named values, ready to be printed as text or as JSON; knows no output format.
struct described_field {
    std::string name;
    std::variant<std::int64_t, bool, std::string> value;
};

struct description {
    std::string name;  ///< of lib/protocol.h, usable as a filter; "undecodable" for what no report or command is
    std::vector<described_field> fields;
};

/// Whether key material is shown, or only its length: in media commands, and in the log line about them.
enum class keys { hidden, shown };

description describe(report const& message, keys show = keys::hidden);

/// Every name that describe() can give, in the order of the reports' tags.
std::vector<std::string> const& report_names();

/// Every command in the datagram, in order. What is no command, or cut off, comes out as "undecodable".
std::vector<description> describe_commands(byte_view datagram, keys show = keys::hidden);

}  // namespace protocol
