#pragma once

#include "lib/timeout.h"

/// The call LED: a blinking state machine driven by the timeout queue. It steps on whether or not there is a device
/// that shows it.
class handle_call_led {
public:
    /// Starts a pattern from its first entry, lit; the first command reaches the driver at once. Pattern 0 switches
    /// the LED off and stops. Replaces what was running.
    void set_led1(int pattern_number);

    /// The timer's callback: commands the next state and schedules the one after it.
    void led_timeout();

    /// The next state (1 lit, 0 dark) and how long it lasts. Patterns 1 to 3 repeat for ever, starting lit; any other
    /// non-zero pattern is dark, commanded anew every 2 s.
    void get_next_cmd(int& lit_now, int& delay_ms);

private:
    int step = 0;      ///< next entry of the pattern
    int pattern = 0;   ///< 0: off
    bool lit = false;  ///< what the next step commands
    timeout timer;
};

extern handle_call_led call_led;

/// Sets the pattern of call_led.
void set_led1(int pattern);
