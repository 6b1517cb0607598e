#include "tools/fxsline/led_timeline.h"

#include <algorithm>

namespace fxsline {

void led_timeline::add(led_command command) {
    history.push_back(command);
    if (history.size() > most_commands)
        history.pop_front();
}

std::string led_timeline::drawing(uint64_t now_ms) const {
    if (history.empty())
        return {};
    std::string columns;
    auto next = history.begin();
    bool on = false;
    uint64_t const begin_ms = std::max(next->time_ms, now_ms - std::min(now_ms, drawn_ms));
    for (uint64_t time_ms = begin_ms; time_ms + column_ms <= now_ms; time_ms += column_ms) {
        for (; next != history.end() && next->time_ms <= time_ms + column_ms / 2; ++next)
            on = next->on;
        columns += on ? '#' : '.';
    }
    return columns;
}

std::string led_timeline::text(uint64_t now_ms) const {
    std::string rows;
    for (led_command const& command : history)
        rows += std::to_string(command.time_ms) + (command.on ? " on\n" : " off\n");
    return rows.empty() ? rows : rows + drawing(now_ms) + "\n";
}

}  // namespace fxsline
