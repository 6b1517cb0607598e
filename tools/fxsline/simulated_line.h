#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <span>

#include "tools/fxsline/line_audio.h"
#include "tools/fxsline/speech.h"

namespace fxsline {

struct line_config {
    speech says;                     ///< what the telephone says
    bool from_clock_start = false;   ///< speech starts with the clock, not at the first tick with the device open
    unsigned delay_ms = 0;           ///< silence before the speech, rounded up to whole ticks
    unsigned backlog_blocks = 8;     ///< unread speech kept while the device is open: what one drain read takes
    unsigned play_queue_blocks = 2;  ///< what can be written ahead of the telephone's ear
};

struct line_counters {
    uint64_t opens = 0;
    uint64_t samples_read = 0;     ///< by the process
    uint64_t samples_written = 0;  ///< by the process
    uint64_t overruns = 0;         ///< ticks at which unread speech was dropped for the next block
    uint64_t underruns = 0;        ///< ticks at which audio had been flowing and a whole block was not there
    uint64_t tx_clears = 0;
};

/// What one tick brought beside the audio.
struct tick_report {
    bool speech_ended = false;
    bool overrun_began = false;  ///< first of a row of overruns without a read between them
    bool underrun = false;
};

/// One telephone on a simulated line, seen from the process that serves it: its speech comes in blocks of 10 ms into a
/// bounded backlog; what is written is queued and played to the telephone's ear, a block a tick. A model without clock,
/// files and threads: tick() moves the time, the owner (line_bank) serialises the calls.
class simulated_line {
public:
    /// Receives the 80 samples of each tick.
    using tap = std::function<void(block const&)>;

    explicit simulated_line(line_config config);

    /// Called with what the telephone heard (silence where nothing was written) or said at each tick.
    void tap_heard(tap receiver) { heard_tap = std::move(receiver); }
    void tap_said(tap receiver) { said_tap = std::move(receiver); }

    /// The device was opened or closed once; several processes may have it open and share the two queues. True when
    /// it was the first to open, the last to close. The last close forgets the backlog; queued audio plays out.
    bool open_device();
    bool close_device();
    bool is_open() const { return open_count > 0; }

    /// Readable: any sample waits. Writable: a whole block fits.
    bool readable() const { return backlog.size() > 0; }
    bool writable() const { return to_play.room() >= block_samples; }
    /// A write of `samples` samples can start: a whole block or all of it fits.
    bool fits(size_t samples) const { return to_play.room() >= std::min(samples, block_samples); }

    /// Takes the oldest unread samples, as many as there are and fit; returns their number.
    size_t read(std::span<int16_t> out);
    /// Queues the first samples, as many as there is room for; returns their number.
    size_t write(std::span<int16_t const> samples);
    /// Forgets what was written and not yet played; returns its number of samples.
    size_t clear_tx();

    /// Says something else from the next tick on, without delay.
    void say(speech what);
    speech const& says() const { return saying; }
    bool speech_started() const { return started && delay_ticks == 0; }

    /// 10 ms pass: one block is played to the ear, one is said.
    tick_report tick();

    line_counters const& counters() const { return counts; }
    size_t samples_to_read() const { return backlog.size(); }
    size_t samples_to_play() const { return to_play.size(); }
    size_t play_capacity() const { return to_play.size() + to_play.room(); }  ///< samples
    level_meter const& heard_level() const { return meter; }

private:
    void play(tick_report& report);
    void speak(tick_report& report);
    void keep_for_reader(block const& said, tick_report& report);

    speech saying;
    bool started;          ///< the delay runs or has run
    unsigned delay_ticks;  ///< left before the speech
    sample_queue backlog;
    sample_queue to_play;
    unsigned open_count = 0;
    bool flowing = false;      ///< the last tick played a whole block, and the device was open
    bool overrunning = false;  ///< the last tick dropped speech, nothing was read since
    line_counters counts;
    level_meter meter;
    tap heard_tap;
    tap said_tap;
};

}  // namespace fxsline
