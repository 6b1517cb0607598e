#pragma once

#include "lib/str.h"

/// Logging: every line is one datagram to call control; nothing goes to a file or to the terminal.
///
/// Levels run from 0 (failures that leave a function unusable) to 9 (dumps). A disabled level costs one comparison:
/// log_line() builds the text behind it, and what is costly to make into an argument is made behind a
/// log_check_condition() of the caller's own.

/// Verbosity threshold: a line is sent when its level is not above it. -1 at start: nothing is sent.
extern int log_level;

/// Whether a line of this level is wanted.
inline bool log_check_condition(int level) {
    return log_level >= level;
}

/// Sends a line without testing its level again. `detail` is an optional second text, left out when empty.
/// A failed send is ignored. Always returns 0.
int log_add_message(int level, str const& message, str const& detail);

/// Sends a line of this level, formatted as by str::sprintf, if the level is wanted.
template <typename... arguments>
void log_line(int level, char const* format, arguments... values) {
    if (log_check_condition(level))
        log_add_message(level, str::sprintf(format, values...), str::null);
}

/// Stores the threshold; any value is taken as it is.
void log_set_level(int level);
