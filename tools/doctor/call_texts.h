#pragma once

#include <cstdio>
#include <string>

#include "tools/doctor/rules.h"

/// What verdicts on a call are worded with.
namespace doctor {

/// As printf writes it, at most 399 bytes.
template <class... T>
std::string format(char const* text, T... values) {
    char line[400];
    std::snprintf(line, sizeof line, text, values...);
    return line;
}

/// "--call 0"
std::string call_option(call_facts const& call);

/// "fxsctl media --call 0 --codec pcma --map 8=pcma" and the like: what a call must be given to accept this payload
/// type as well.
std::string map_cure(call_facts const& call, int payload_type);

}  // namespace doctor
