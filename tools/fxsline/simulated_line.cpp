#include "tools/fxsline/simulated_line.h"

#include <algorithm>
#include <utility>

namespace fxsline {

simulated_line::simulated_line(line_config config)
    : saying(std::move(config.says)),
      started(config.from_clock_start),
      delay_ticks((config.delay_ms + tick_ms - 1) / tick_ms),
      backlog(config.backlog_blocks * block_samples),
      to_play(config.play_queue_blocks * block_samples) {}

bool simulated_line::open_device() {
    counts.opens++;
    return open_count++ == 0;
}

bool simulated_line::close_device() {
    if (--open_count > 0)
        return false;
    backlog.discard(backlog.size());
    flowing = false;
    overrunning = false;
    return true;
}

size_t simulated_line::read(std::span<int16_t> out) {
    size_t const count = backlog.pop(out);
    counts.samples_read += count;
    overrunning = false;
    return count;
}

size_t simulated_line::write(std::span<int16_t const> samples) {
    size_t const count = std::min(samples.size(), to_play.room());
    to_play.push(samples.first(count));
    counts.samples_written += count;
    return count;
}

size_t simulated_line::clear_tx() {
    size_t const count = to_play.size();
    to_play.discard(count);
    counts.tx_clears++;
    flowing = false;
    return count;
}

void simulated_line::say(speech what) {
    saying = std::move(what);
    started = true;
    delay_ticks = 0;
}

tick_report simulated_line::tick() {
    tick_report report;
    play(report);
    speak(report);
    return report;
}

void simulated_line::play(tick_report& report) {
    block heard{};
    bool const whole = to_play.pop(heard) == heard.size();
    report.underrun = flowing && !whole;
    counts.underruns += report.underrun;
    flowing = whole && is_open();
    meter.add(heard);
    if (heard_tap)
        heard_tap(heard);
}

void simulated_line::speak(tick_report& report) {
    block said{};
    started |= is_open();
    if (started && delay_ticks > 0) {
        delay_ticks--;
    } else if (started) {
        bool const ended_before = saying.ended();
        saying.next(said);
        report.speech_ended = saying.ended() && !ended_before;
    }
    if (said_tap)
        said_tap(said);
    if (is_open())
        keep_for_reader(said, report);
}

void simulated_line::keep_for_reader(block const& said, tick_report& report) {
    if (backlog.room() < said.size()) {
        backlog.discard(said.size() - backlog.room());
        counts.overruns++;
        report.overrun_began = !overrunning;
        overrunning = true;
    }
    backlog.push(said);
}

}  // namespace fxsline
