#include "phone/call_led.h"

#include <algorithm>

namespace fxsphone {

namespace {

/// What is to be seen; the later one wins.
enum class shown { nothing, registered, message, off_hook, rings };

shown of_line(line const& state) {
    if (state.rings())
        return shown::rings;
    if (state.now_in() != line::state::on_hook)
        return shown::off_hook;
    return state.has_messages() ? shown::message : shown::nothing;
}

// Patterns of the process's LED command.
constexpr int dark = 0;
constexpr int even = 1;  // begins with 500 ms of light
constexpr int hasty = 2;
constexpr int three_short = 3;

constexpr int flash_ms = 500;  // the process knows no such pattern: this is the beginning of the even one
constexpr int rest_ms = 4500;

}  // namespace

void call_led::show(telephone_list const& telephones, bool registered, std::int64_t now_ms) {
    shown most = registered ? shown::registered : shown::nothing;
    for (auto const& one : telephones)
        most = std::max(most, of_line(one->state));
    bool const turns = most == shown::registered && turn_ms <= now_ms;
    flashes = most == shown::registered && flashes != turns;
    if (most != shown::registered)
        turn_ms = INT64_MAX;
    else if (turns || turn_ms == INT64_MAX)
        turn_ms = now_ms + (flashes ? flash_ms : rest_ms);
    int const by_state[] = {dark, flashes ? even : dark, three_short, even, hasty};
    int const wanted = by_state[static_cast<int>(most)];
    if (wanted != commanded && process.send(fxsmedia::led_command{.pattern = wanted}))
        commanded = wanted;
}

}  // namespace fxsphone
