#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/fxsline/outcome.h"

/// What the driver says at which line time: a script made of a file or of hook changes.
namespace fxsline {

struct scripted_text {
    uint64_t time_ms;
    std::string bytes;  ///< exactly what is sent
};

using pipe_script = std::vector<scripted_text>;

/// Reads rows "MS TEXT" (MS up to a day, rows in any order); empty rows and those that begin with # are skipped. TEXT
/// may hold \r, \n, \\ and \xHH. CR LF is added to it, unless it ends in \c, which adds nothing.
outcome<pipe_script> parse_pipe_script(std::string_view rows);

/// The telephone of `line` goes off-hook ("off-hook N") at the first time, on-hook at the second, and so on.
pipe_script hook_changes(unsigned line, std::vector<unsigned> const& times_ms);

/// The driver has seen keys on `line` ("key N 5"), one every 200 ms.
pipe_script key_presses(unsigned line, std::string_view keys, unsigned first_ms);

}  // namespace fxsline
