#pragma once

class str;

/// Logging: every line is one datagram to call control; nothing goes to a file or to the terminal.
///
/// Levels run from 0 (failures that leave a function unusable) to 9 (dumps). Callers test
/// log_check_condition() first and build the text only when it is true, so a disabled level costs one
/// comparison. This header is all that lower layers see of the log; lib/log_datagram.cpp implements it.

/// Verbosity threshold: a line is sent when its level is not above it. -1 at start: nothing is sent.
extern int log_level;

/// Whether a line of this level is wanted.
inline bool log_check_condition(int level) {
    return log_level >= level;
}

/// Sends a line without testing its level again. `detail` is an optional second text, left out when empty.
/// A failed send is ignored. Always returns 0.
int log_add_message(int level, str const& message, str const& detail);

/// Stores the threshold; any value is taken as it is.
void log_set_level(int level);
