#include "control/call_led.h"

#include <span>

#include "control/driver.h"

handle_call_led call_led;

namespace {

// Durations in ms, alternately lit and dark, starting lit.
constexpr int even_blink[] = {500, 500};
constexpr int five_flashes[] = {50, 50, 50, 50, 50, 50, 50, 50, 50, 2000};
constexpr int three_flashes[] = {100, 50, 100, 50, 100, 2500};
constexpr int dark_ms = 2000;

/// Empty for a number without a blink pattern.
std::span<int const> durations(int pattern) {
    switch (pattern) {
        case 1: return even_blink;
        case 2: return five_flashes;
        case 3: return three_flashes;
        default: return {};
    }
}

void step_call_led() {
    call_led.led_timeout();
}

}  // namespace

void handle_call_led::set_led1(int pattern_number) {
    timer.clear();
    if (pattern_number == 0) {
        send_led_call_cmd_to_driver(0);
        return;
    }
    pattern = pattern_number;
    lit = true;
    step = 0;
    led_timeout();
}

void handle_call_led::led_timeout() {
    int lit_now;
    int delay_ms;
    get_next_cmd(lit_now, delay_ms);
    send_led_call_cmd_to_driver(lit_now);
    timer.callback(rtimestamp::ms2ticks(delay_ms), callback_argument(step_call_led));
}

void handle_call_led::get_next_cmd(int& lit_now, int& delay_ms) {
    std::span<int const> const table = durations(pattern);
    if (table.empty()) {
        lit = false;
        delay_ms = dark_ms;
    } else {
        if (step >= static_cast<int>(table.size())) {
            step = 0;
            lit = true;
        }
        delay_ms = table[static_cast<std::size_t>(step)];
        step++;
    }
    lit_now = lit;
    lit = !lit;
}

void set_led1(int pattern) {
    call_led.set_led1(pattern);
}
