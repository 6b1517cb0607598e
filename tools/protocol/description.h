// A message taken apart into named values, ready to be printed as text or as JSON; knows no output format.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "tools/protocol/hex.h"
#include "tools/protocol/reports.h"

namespace protocol {

struct described_field {
    std::string name;
    std::variant<std::int64_t, bool, std::string> value;
};

struct description {
    std::string name;  // e.g. "open"; fixed words, usable as a filter
    std::vector<described_field> fields;
};

// Whether key material is shown, or only its length: in media commands, and in the log line about them.
enum class keys { hidden, shown };

description describe(report const& message, keys show = keys::hidden);

// Every name that describe() can give, in the order of their tags.
std::vector<std::string> const& report_names();

// Every command in the datagram, in order. Whatever is not a command, or cut off, comes out under
// "undecodable".
std::vector<description> describe_commands(byte_view datagram, keys show = keys::hidden);

}  // namespace protocol
