#pragma once

/// Requests to the telephone-line driver. They go to the first line device that is open; when none is, the first
/// device is opened for the one request.

/// Passes a driver command through, whatever it means there. The result of command 3 is reported to call control.
void reset_base(int command);

/// Switches the call LED.
void send_led_call_cmd_to_driver(int on);
