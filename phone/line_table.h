#pragma once

#include "phone/line.h"

/// What the rows of the line's table are made of (line_table.cpp); only line.cpp needs to know.
namespace fxsphone {

enum class line::act : std::uint8_t {
    none,
    open,
    dial_tone,
    done_tone,
    ringback_tone,
    busy_tone,
    congestion_tone,
    silence,
    waiting_tone,
    ring,
    stop_ringing,
    howl,
    invite,
    answer,
    refuse,
    decline_second,
    hang_up,
    hang_up_second,
    hold,
    hold_second,
    resume,
    resume_second,
    swap,
    transfer,
    transfer_second,
    follow,
    connect,
    remember,
    send_key,
    send_key_to_second,
};

/// Applies in any of its states and with any of its companions (empty: with all); the first row that fits counts.
struct line::row {
    std::vector<state> when;
    std::vector<second> with;
    happening what;
    std::optional<state> next;  ///< nullopt: stays, its time-out runs on
    std::optional<second> next_second;
    std::array<act, 4> acts = {};
};

}  // namespace fxsphone
