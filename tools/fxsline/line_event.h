#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace fxsline {

enum class event_kind {
    device_opened,  ///< the first process opened the device
    device_closed,  ///< the last one closed it
    led_on,
    led_off,
    tx_clear,      ///< number: samples that were discarded
    base_command,  ///< number: the command, answer: what the driver answered
    say,           ///< text: the command that was written to lineN.say
    say_refused,   ///< text: why
    speech_ended,  ///< a recording was said to its end
    overrun,       ///< speech is being lost because it is not read; once until the next read
    underrun,      ///< audio was flowing and stopped
    ring_text,     ///< text: a line of text from the ring device
    /// Of no line:
    driver_line,          ///< text: the bytes that the driver said over the message pipe
    driver_line_refused,  ///< text: why
    signal_from_process,  ///< text: the bytes that the process wrote to the signalling device, hexadecimal, as below
    signal_to_process,
    signal_refused,  ///< text: why
};

/// What happens on the lines beside the audio, as values for a program and as lines of text for people and scripts.
struct line_event {
    event_kind kind;
    unsigned line;     ///< 0 where the kind has none
    uint64_t time_ms;  ///< line time: ticks since the clock's start times 10
    int64_t number = 0;
    int64_t answer = 0;
    std::string text = {};
};

using event_sink = std::function<void(line_event const&)>;

/// "    1230 ms  line 0  base command 3, answer 0", without line feed. Bytes of the driver that can't be printed appear
/// as \xNN.
std::string event_text(line_event const& event);

/// {"time_ms":1230,"line":0,"event":"base_command","number":3,"answer":0}, without line feed; line, number, answer and
/// text only where the kind has them.
std::string event_json(line_event const& event);

}  // namespace fxsline
