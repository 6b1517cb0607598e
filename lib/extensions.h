#pragma once

#include "lib/str.h"

/// Departures from habits that peers in the field depend on, each switched on by name; docs/extensions.md says what
/// each costs and cures. A part reads its own when it is made, so they are chosen before the channels are.
struct extension_set {
    bool dtmf = false;     ///< see dtmf_synthesizer
    bool g722 = false;     ///< see g722
    bool srtp = false;     ///< see checked_srtp.h
    bool playout = false;  ///< see adaptive_playout
    bool rtcp = false;     ///< see rtcp_session
    bool detect = false;   ///< see digit_listener

    /// Switches on what `list` names: names with commas between them, or "all". False when a name is unknown; those
    /// before it are on.
    bool add(str const& list);
    /// A line for each: its name and what it does.
    static str help();
};

/// Those of this process; none unless an option says otherwise.
extern extension_set extensions;
