#pragma once

#include "dsp/dtmf_recognition.h"
#include "lib/str.h"

/// Listens to the captured audio of a line for keys, and takes their tones out of a copy that is 20 ms late, so that
/// far ends that get telephone events don't hear them a second time. A key counts when two blocks of the detector in a
/// row agree on it and at least 40 % of their energy is in its two tones. The first of them is silenced already: up to
/// 10 ms of a tone remain in front of it. A device manager owns one. PCM is 16-bit at 8 kHz in host byte order.
class digit_listener {
public:
    /// What came of 10 ms.
    struct result {
        str cleaned;   ///< 10 ms, of 20 ms before, without keys' tones
        char key = 0;  ///< '0' to '9', '*', '#', 'A' to 'D': it has just been recognised; 0: none
    };

    digit_listener() { clear(); }
    void clear();
    /// Takes a block of 10 ms.
    result hear(str const& block);

    /// The telephone-event code of a key (RFC 4733 section 3.2).
    static int event_of(char key);

private:
    char classify() const;

    static constexpr int late_blocks = 2;

    dtmf_recognition detector;
    str late[late_blocks];  ///< oldest first
    bool block_begun;       ///< the detector has half of its next block
    char last, before;      ///< what its blocks were: a key or 0
};
