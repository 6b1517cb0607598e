#include "media/xr_events.h"

#include <algorithm>
#include <climits>

#include "media/arithmetic.h"

namespace {

constexpr int jitter_gain = 16;  // RFC 3550 section 6.4.1

/// How much longer or shorter b was under way than a.
int transit_difference(xr_events::packet_event const& a, xr_events::packet_event const& b) {
    std::uint32_t const difference = b.timestamp - a.timestamp - (b.time - a.time);
    return static_cast<int>(std::min<std::uint32_t>(std::min(difference, 0u - difference), INT_MAX));
}

}  // namespace

void xr_events::packet_event::add(std::uint32_t rtp_timestamp, std::uint32_t arrival) {
    if (count == 0) {
        timestamp = rtp_timestamp;
        time = arrival;
    }
    count++;
}

bool xr_events::add(int sequence, std::uint32_t rtp_timestamp, std::uint32_t arrival) {
    if (count == 0)
        base = wrapping_sum(sequence, -before_first);
    std::uint32_t const i = static_cast<std::uint32_t>(sequence) - static_cast<std::uint32_t>(base);
    if (i >= window)
        return false;
    if (events[i].count == 0)
        count++;
    events[i].add(rtp_timestamp, arrival);
    return true;
}

void xr_events::clear() {
    std::fill(events, events + window, packet_event());
    count = base = 0;
}

int xr_events::get_first() const {
    int i = 0;
    while (events[i].count == 0)
        i++;
    return sequence_at(i);
}

xr_events::transit_differences xr_events::get_transit_differences() const {
    transit_differences found;
    long long jitter = 0;
    int remaining = count;
    for (int i = 0; i < window - 1 && remaining > 0; i++) {
        if (events[i].count == 0)
            continue;
        remaining--;
        if (events[i + 1].count == 0)
            continue;
        int const transit = transit_difference(events[i], events[i + 1]);
        found.min = std::min(found.min, transit);
        found.max = std::max(found.max, transit);
        found.sum = wrapping_sum(found.sum, transit);
        found.count++;
        found.square_sum = wrapping_sum(found.square_sum, static_cast<long long>(transit) * transit);
        jitter += (transit - jitter) / jitter_gain;
    }
    found.jitter = static_cast<int>(jitter);
    return found;
}

xr_events::sequence_summary xr_events::get_sequences() const {
    sequence_summary found;
    int remaining = count;
    for (int i = 0; i < window - 1 && remaining > 0; i++) {
        int const sequence = sequence_at(i);
        if (events[i].count > 0) {
            remaining--;
            found.lowest = std::min(found.lowest, sequence);
            found.highest = std::max(found.highest, sequence);
        } else if (found.lowest < sequence) {
            found.lost++;
        }
        if (events[i].count >= 2)
            found.duplicates++;
    }
    return found;
}
