#pragma once

#include "lib/log.h"
#include "lib/str.h"

/// Sends a line of this level, formatted as by str::sprintf, if the level is wanted; text is built only then. What is
/// costly to make into an argument is made behind a log_check_condition() of the caller's own.
template <typename... arguments>
void log_line(int level, char const* format, arguments... values) {
    if (log_check_condition(level))
        log_add_message(level, str::sprintf(format, values...), str::null);
}
