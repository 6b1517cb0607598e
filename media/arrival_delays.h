#pragma once

#include <cstdint>

#include "media/delay_peaks.h"

/// How late the packets of a stream come: the distribution of their delays, measured from the fastest packet of the
/// last 2 to 4 s, so that a constant delay of the network counts nothing and clock drift is followed. Old packets are
/// forgotten exponentially (time constant 256 packets, fewer while there are fewer). Packets that were held up together
/// count once, so that one spike raises nothing, and one in fewer than a hundred packets does. All times are 8 kHz
/// ticks and wrap; reads no clock.
class arrival_delays {
public:
    /// A packet with this RTP timestamp arrived. Returns its delay against the fastest one, 0 or more.
    int add(std::uint32_t timestamp, std::uint32_t arrived);
    /// Transit time (arrival less RTP timestamp) of the fastest packet.
    std::uint32_t get_fastest() const { return base; }
    /// The delay that 99 of 100 packets keep, 0 when that is below 1.25 ms; more while hold-ups repeat (delay_peaks).
    int get_usual() const { return usual > peaks.get_expected() ? usual : peaks.get_expected(); }
    /// Forgets all: another stream or another clock follows.
    void clear() { *this = arrival_delays(); }

private:
    static constexpr int buckets = 128;  ///< of 2.5 ms

    int follow_fastest(std::uint32_t transit, std::uint32_t arrived);
    void shift(int ticks);
    void count(int delay);
    bool released_with_last(std::uint32_t timestamp, std::uint32_t arrived) const;

    std::uint32_t share[buckets] = {};  ///< of the packets, Q30; number n is around n * 2.5 ms
    int counted = 0;                    ///< packets, up to the forgetting's time constant
    int usual = 0;                      ///< the delay that 99 of 100 packets keep
    delay_peaks peaks;
    int unshifted = 0;                 ///< how far the fastest packet moved since the shares did
    bool any = false;                  ///< a packet came
    std::uint32_t fastest[2] = {};     ///< least transit time of this period and of the last one
    std::uint32_t period_began = 0;    ///< arrival
    std::uint32_t base = 0;            ///< the lesser of both
    std::uint32_t last_timestamp = 0;  ///< of the packet before
    std::uint32_t last_arrived = 0;    ///< of the packet before
};
