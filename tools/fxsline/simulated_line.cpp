#include "tools/fxsline/simulated_line.h"

#include <algorithm>
#include <utility>

namespace fxsline {

simulated_line::simulated_line(line_config config)
    : says_(std::move(config.says)),
      started_(config.from_clock_start),
      delay_ticks_((config.delay_ms + tick_ms - 1) / tick_ms),
      backlog_(config.backlog_blocks * block_samples),
      to_play_(config.play_queue_blocks * block_samples) {}

bool simulated_line::open_device() {
    counters_.opens++;
    return open_count_++ == 0;
}

bool simulated_line::close_device() {
    if (--open_count_ > 0)
        return false;
    backlog_.discard(backlog_.size());
    flowing_ = false;
    overrunning_ = false;
    return true;
}

size_t simulated_line::read(std::span<int16_t> out) {
    size_t const count = backlog_.pop(out);
    counters_.samples_read += count;
    overrunning_ = false;
    return count;
}

size_t simulated_line::write(std::span<int16_t const> samples) {
    size_t const count = std::min(samples.size(), to_play_.room());
    to_play_.push(samples.first(count));
    counters_.samples_written += count;
    return count;
}

size_t simulated_line::clear_tx() {
    size_t const count = to_play_.size();
    to_play_.discard(count);
    counters_.tx_clears++;
    flowing_ = false;
    return count;
}

void simulated_line::say(speech what) {
    says_ = std::move(what);
    started_ = true;
    delay_ticks_ = 0;
}

tick_report simulated_line::tick() {
    tick_report report;
    play(report);
    speak(report);
    return report;
}

void simulated_line::play(tick_report& report) {
    block heard{};
    bool const whole = to_play_.pop(heard) == heard.size();
    report.underrun = flowing_ && !whole;
    counters_.underruns += report.underrun;
    flowing_ = whole && is_open();
    heard_level_.add(heard);
    if (heard_tap_)
        heard_tap_(heard);
}

void simulated_line::speak(tick_report& report) {
    block said{};
    started_ |= is_open();
    if (started_ && delay_ticks_ > 0) {
        delay_ticks_--;
    } else if (started_) {
        bool const ended_before = says_.ended();
        says_.next(said);
        report.speech_ended = says_.ended() && !ended_before;
    }
    if (said_tap_)
        said_tap_(said);
    if (is_open())
        keep_for_reader(said, report);
}

void simulated_line::keep_for_reader(block const& said, tick_report& report) {
    if (backlog_.room() < said.size()) {
        backlog_.discard(said.size() - backlog_.room());
        counters_.overruns++;
        report.overrun_began = !overrunning_;
        overrunning_ = true;
    }
    backlog_.push(said);
}

}  // namespace fxsline
