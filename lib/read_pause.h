#pragma once

#include "lib/rtimestamp.h"

/// How long a descriptor is left alone after a read that gave nothing.
///
/// A device that died, or whose other side hung up, stays readable for ever; asked in every pass of the main loop it
/// would take the whole processor, at real-time priority. So who reads it notes what each read gave, and the main loop
/// leaves the descriptor out until the pause is over. One that always gives something never pauses.
class read_pause {
public:
    static constexpr int length_ms = 10;  ///< chosen: a block of audio, and the resolution of the clock

    /// After each read: whether it gave at least one byte.
    void note(bool gave_something) {
        until.clear();
        if (gave_something)
            return;
        until = rtimestamp::now();
        until += rtimestamp::ms2ticks(length_ms);
    }
    /// Of a descriptor opened anew: it may be read at once.
    void clear() { until.clear(); }
    /// ms until it may be read again; 0: now.
    int left_ms() const {
        int const left = until == rtimestamp() ? 0 : until.diff_ms(rtimestamp::now());
        return left > 0 ? left : 0;
    }

private:
    rtimestamp until;  ///< 0: no pause
};
