#pragma once

#include "lib/rtimestamp.h"

/// How long a descriptor is left alone after it gave or took nothing.
///
/// A device that died, or whose other side hung up, stays ready for ever; asked in every pass of the main loop it would
/// take the whole processor, at real-time priority. So who reads or writes it notes what each try did, and the main
/// loop leaves the descriptor out until the pause is over. One that always moves something never pauses.
class retry_pause {
public:
    static constexpr int length_ms = 10;  ///< chosen: a block of audio, and the resolution of the clock

    /// After each read or write: whether it moved at least one byte.
    void note(bool moved_something) {
        until.clear();
        if (moved_something)
            return;
        until = rtimestamp::now();
        until += rtimestamp::ms2ticks(length_ms);
    }
    /// Of a descriptor opened anew: it may be used at once.
    void clear() { until.clear(); }
    /// ms until it may be tried again; 0: now.
    int left_ms() const {
        int const left = until == rtimestamp() ? 0 : until.diff_ms(rtimestamp::now());
        return left > 0 ? left : 0;
    }

private:
    rtimestamp until;  ///< 0: no pause
};
