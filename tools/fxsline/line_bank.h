#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/fxsline/led_timeline.h"
#include "tools/fxsline/line_event.h"
#include "tools/fxsline/simulated_line.h"

namespace fxsline {

/// Driver requests of ioctl, without argument, in the encoding of _IO('0', n) on MIPS.
inline constexpr uint32_t request_base = 0x20003000;      ///< | n: base command n, for every other n below 4096
inline constexpr uint32_t request_tx_clear = 0x20003005;  ///< discard the samples queued for the line
inline constexpr uint32_t request_led_on = 0x20003006;
inline constexpr uint32_t request_led_off = 0x20003007;

struct bank_config {
    std::vector<line_config> lines = std::vector<line_config>(4);
    /// What ioctl answers to base command n where it is not 0; -4095 to -1 make it fail with that errno.
    std::map<unsigned, int> base_answers;
};

/// All telephones of one simulated device, on one clock, with the driver that they share: its requests, the call LED
/// and the events. A model without threads, like simulated_line; the caller serialises (line_mount does, with its
/// lock).
class line_bank {
public:
    /// `events` may be empty. It is called from within the operations below.
    explicit line_bank(bank_config config, event_sink events = {});

    unsigned lines() const { return static_cast<unsigned>(telephones.size()); }
    /// `index` below lines(), here and below. Audio is read, written and tapped on the line itself.
    simulated_line& line(unsigned index) { return telephones[index]; }

    /// 10 ms pass on every line.
    void tick();
    uint64_t ticks() const { return passed; }

    void open_device(unsigned index);
    void close_device(unsigned index);
    /// Carries out a driver request; returns what ioctl returns, or -ENOTTY for a request the driver doesn't know.
    int request(unsigned index, uint32_t number);
    bool led() const { return timeline.lit(); }
    led_timeline const& led_commands() const { return timeline; }
    std::string led_text() const { return timeline.text(passed * tick_ms); }

    /// Lets the telephone say something else (see parse_speech); false, with an event that says why, if it can't.
    bool say(unsigned index, std::string_view command);

    /// Only reports that a command to say something was refused.
    void refuse_to_say(unsigned index, std::string why) {
        report(event_kind::say_refused, index, 0, 0, std::move(why));
    }

    /// Only reports what happened on a link that belongs to no line.
    void report_ring(unsigned index, std::string text) { report(event_kind::ring_text, index, 0, 0, std::move(text)); }
    void report_link(event_kind kind, std::string text) { report(kind, 0, 0, 0, std::move(text)); }

    /// State and counters of a line, one "name value" a row.
    std::string stats(unsigned index);

private:
    void report(event_kind kind, unsigned index, int64_t number = 0, int64_t answer = 0, std::string text = {});

    std::vector<simulated_line> telephones;
    std::map<unsigned, int> base_answers;
    event_sink sink;
    uint64_t passed = 0;
    led_timeline timeline;
};

}  // namespace fxsline
