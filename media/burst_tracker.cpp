#include "media/burst_tracker.h"

#include <algorithm>

#include "lib/log.h"
#include "lib/pcm.h"
#include "lib/rtcp_numbers.h"
#include "lib/str.h"

namespace {

constexpr int units_per_ms = pcm::samples_per_ms;
constexpr std::uint32_t all_received = (1u << rtcp::gmin) - 1;

int span(std::uint32_t from, std::uint32_t to) {
    return static_cast<int>(to - from);
}

std::uint32_t rounded_ms(int units) {
    return static_cast<std::uint32_t>((units + units_per_ms / 2LL) / units_per_ms);
}

}  // namespace

void burst_tracker::shift(bool received, std::uint32_t time) {
    history = history << 1 | static_cast<std::uint32_t>(received);
    std::copy(recent_times + 1, recent_times + recent_count, recent_times);
    recent_times[recent_count - 1] = time;
}

void burst_tracker::add_received(std::uint32_t time) {
    shift(true, time);
    if (position == 0)
        first_time = time;
    last_time = time;
    position++;
    process_burst();
}

void burst_tracker::add_lost(std::uint32_t n) {
    // After this many the history holds nothing but losses and each further one only counts, within the burst.
    constexpr std::uint32_t history_bits = 32;
    std::uint32_t const alike = n - std::min(n, history_bits);
    for (; n > alike; n--) {
        shift(false, 0);
        position++;
        process_burst();
    }
    position += alike;
    lost += alike;
    burst_lost += alike;
}

void burst_tracker::process_burst() {
    bool const was_lost = (history >> rtcp::gmin & 1) == 0;
    if (!was_lost)
        return;
    bool const since_then_received = (history & all_received) == all_received;
    if (!in_burst && !since_then_received) {
        in_burst = true;
        burst_begin = recent_times[0];
        log_line(5, "Burst begin: pos=%d, begin=%d", arg_int(get_position()), arg_int(static_cast<int>(burst_begin)));
    } else if (in_burst && since_then_received) {
        in_burst = false;
        std::uint32_t const end = recent_times[2];
        burst_duration_ms += static_cast<std::uint32_t>(span(burst_begin, end) / units_per_ms);
        burst_begin = end;
        bursts++;
        log_line(5, "Burst %d end: pos=%d, end=%d, duration=%d", arg_int(bursts), arg_int(get_position()),
                 arg_int(static_cast<int>(end)), arg_int(static_cast<int>(burst_duration_ms)));
    }
    lost++;
    (in_burst ? burst_lost : gap_lost)++;
}

int burst_tracker::burst_total_ms() const {
    std::uint32_t const latest = in_burst ? rounded_ms(span(burst_begin, last_time)) : 0;
    return static_cast<int>(burst_duration_ms + latest);
}

int burst_tracker::gap_total_ms() const {
    return static_cast<int>(rounded_ms(span(first_time, last_time)) - static_cast<std::uint32_t>(burst_total_ms()));
}
