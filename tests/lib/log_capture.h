#pragma once

#include <string>
#include <vector>

#include "lib/log.h"
#include "lib/str.h"

/// A log for tests of what lies below the link: defined here in place of lib/log_datagram.cpp, it keeps every
/// line. Include it in one file of a test program.
inline std::vector<std::string> captured_log;

int log_level = 1;
void log_set_level(int level) {
    log_level = level;
}
int log_add_message(int level, str const& message, str const&) {
    captured_log.push_back(std::to_string(level) + " " +
                           std::string(reinterpret_cast<char const*>(message.cbuffer()),
                                       static_cast<std::size_t>(message.length())));
    return 0;
}

/// The captured lines, joined by "|"; forgets them.
inline std::string take_log() {
    std::string all;
    for (std::string const& line : captured_log)
        all += (all.empty() ? "" : "|") + line;
    captured_log.clear();
    return all;
}
