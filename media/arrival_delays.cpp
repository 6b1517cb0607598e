#include "media/arrival_delays.h"

#include <algorithm>
#include <bit>

namespace {

constexpr int bucket_ticks = 20;               // 2.5 ms
constexpr std::uint32_t period_ticks = 16000;  // 2 s
constexpr int slowest_forgetting = 8;          // shift: 256 packets
constexpr int longest = 80000;                 // 10 s, far beyond any buffer
constexpr std::uint32_t whole = 1U << 30;
constexpr std::uint32_t tail = whole / 100;  // chosen: what may come later than the target

/// a - b of wrapping times.
int difference(std::uint32_t a, std::uint32_t b) {
    return static_cast<int>(a - b);
}

}  // namespace

int arrival_delays::add(std::uint32_t timestamp, std::uint32_t arrived) {
    bool const with_last = any && released_with_last(timestamp, arrived);
    int const delay = follow_fastest(arrived - timestamp, arrived);
    if (!with_last || delay == 0)
        count(delay);
    peaks.add(delay, usual, arrived);
    last_timestamp = timestamp;
    last_arrived = arrived;
    any = true;
    return delay;
}

/// Packets that were held up by the same cause follow each other much faster than they were sent.
bool arrival_delays::released_with_last(std::uint32_t timestamp, std::uint32_t arrived) const {
    int const sent_after = difference(timestamp, last_timestamp);
    return sent_after > 0 && 4LL * difference(arrived, last_arrived) < sent_after;
}

int arrival_delays::follow_fastest(std::uint32_t transit, std::uint32_t arrived) {
    if (!any) {
        fastest[0] = fastest[1] = base = transit;
        period_began = arrived;
    } else if (arrived - period_began >= period_ticks) {
        fastest[1] = fastest[0];
        fastest[0] = transit;
        period_began = arrived;
    }
    if (difference(transit, fastest[0]) < 0)
        fastest[0] = transit;
    std::uint32_t const now = difference(fastest[0], fastest[1]) < 0 ? fastest[0] : fastest[1];
    int const slower = difference(now, base);
    if (slower > 0)
        shift(slower);
    base = now;
    return std::clamp(difference(transit, base), 0, longest);
}

/// The fastest packet is now `ticks` slower: all delays are less by that. When it is faster they stay: what came by the
/// slower clock or the slower way does not come again.
void arrival_delays::shift(int ticks) {
    constexpr int furthest = buckets * bucket_ticks;
    unshifted += std::min(ticks, furthest);
    int const by = unshifted / bucket_ticks;
    unshifted %= bucket_ticks;
    for (int i = 0; i < buckets; i++) {
        std::uint32_t const moved = share[i];
        share[i] = 0;
        share[std::max(i - by, 0)] += moved;
    }
}

void arrival_delays::count(int delay) {
    int const forgetting = std::min<int>(std::bit_width(static_cast<unsigned>(counted)), slowest_forgetting);
    counted = std::min(counted + 1, 1 << slowest_forgetting);
    for (std::uint32_t& s : share)
        s -= s >> forgetting;
    share[std::min((delay + bucket_ticks / 2) / bucket_ticks, buckets - 1)] += whole >> forgetting;
    std::uint32_t above = 0;
    int latest = buckets - 1;
    while (latest > 0 && (above += share[latest]) <= tail)
        latest--;
    usual = latest == 0 ? 0 : latest * bucket_ticks + bucket_ticks / 2;
}
