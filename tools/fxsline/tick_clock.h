// The real 10 ms clock: counts whole periods of the monotonic clock since it was made. Nobody who reads it late
// loses a tick, and lateness never adds up. Owns a timer descriptor.
#pragma once

#include <cstdint>

namespace fxsline {

class tick_clock {
public:
    tick_clock();  // the first tick is 10 ms away
    tick_clock(tick_clock const&) = delete;
    ~tick_clock();

    // Readable (for poll) when a tick is due.
    int fd() const { return timer; }

    // The ticks that fell due since the last call, 0 if none. Never waits.
    uint64_t due();

private:
    int timer;
};

}  // namespace fxsline
