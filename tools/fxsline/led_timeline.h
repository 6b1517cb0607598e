#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace fxsline {

struct led_command {
    uint64_t time_ms;
    bool on;
};

/// The commands to the call LED with their line times, as a list and as a drawing. Reads no clock: its owner,
/// line_bank, gives the time.
class led_timeline {
public:
    static constexpr uint64_t column_ms = 50;       ///< one character: the shortest flash of a blink pattern
    static constexpr uint64_t drawn_ms = 60000;     ///< what a drawing shows at most
    static constexpr size_t most_commands = 10000;  ///< kept: 20 minutes of the fastest blinking

    void add(led_command command);

    bool lit() const { return !history.empty() && history.back().on; }

    /// Oldest first, those that change nothing included.
    std::deque<led_command> const& commands() const { return history; }

    /// "#####.....": a character for every whole 50 ms from the first command (or the last minute's begin) to
    /// `now_ms`, # where the LED is lit in the middle of that time. Empty without a command.
    std::string drawing(uint64_t now_ms) const;

    /// A row "TIME_MS on" or "TIME_MS off" for every command, then a row with the drawing; empty without a command.
    std::string text(uint64_t now_ms) const;

private:
    std::deque<led_command> history;
};

}  // namespace fxsline
