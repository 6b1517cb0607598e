#pragma once

#include <array>
#include <cstdint>

#include "phone/media_channels.h"

namespace fxsphone {

/// Tones that the process has no kind for, made of those that it has: the stuttering dial tone, and the short one that
/// tells of a second call. Times are of the monotonic clock in ms.
class line_tones {
public:
    explicit line_tones(media_channels& player) : channels(player) {}

    /// To the leg's channel; whatever the line was played before is over.
    void play(leg const& one, tone sound, std::int64_t now_ms);
    /// Tells of the call that waits on `one`: what a line hears is the sum of its two channels.
    void announce(leg const& one, std::int64_t now_ms);
    /// The call that waited is taken.
    void end_announcement(leg const& one);
    /// The leg's channel goes.
    void forget(leg const& one);

    /// Does what is due on the telephone's line.
    void pass_time(telephone const& which, std::int64_t now_ms);
    /// When pass_time() is to be called for the line; INT64_MAX: nothing is under way.
    std::int64_t due_ms(int line) const;

private:
    struct under_way {
        int waiting_leg = -1;  ///< plays the call-waiting tone until waiting_end
        std::int64_t waiting_end = 0;
        int stutter_leg = -1;  ///< its dial tone goes off and on until there are no bursts left
        int stutters_left = 0;
        std::int64_t stutter_due = 0;
    };

    media_channels& channels;
    std::array<under_way, 4> lines;
};

}  // namespace fxsphone
