#pragma once

#include <string>

#include "tools/fxsline/line_bank.h"

namespace fxsline {

/// Writes events, start and totals of a run to standard output, each line at once so that a script can wait for it.
class event_printer {
public:
    enum class style { text, json, quiet };

    explicit event_printer(style wanted) : how(wanted) {}

    /// The files are there.
    void serving(std::string const& mountpoint, unsigned lines) const;

    void event(line_event const& event) const;

    /// The counters of every line whose device was ever opened.
    void totals(line_bank& bank) const;

    /// The commands to the call LED and a drawing of them; nothing without a command.
    void led(line_bank const& bank) const;

private:
    style how;
};

}  // namespace fxsline
