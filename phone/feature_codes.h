#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "phone/dial_plan.h"

namespace fxsphone {

/// What a code can ask for.
enum class feature {
    none,
    forward_always,     ///< to the number that follows
    forward_busy,       ///< likewise
    forward_no_answer,  ///< likewise
    forward_off,        ///< all three
    do_not_disturb,
    do_not_disturb_off,
    call_back,    ///< whoever called last
    redial,       ///< the number that was dialled last
    hide_number,  ///< in the call to the number that follows
    transfer,     ///< the call on hold, to the number that follows
};

/// The keys that ask for a feature: 0 to 9, * and #.
struct feature_code {
    std::string keys;
    feature what = feature::none;
};

/// What its owner has chosen for a telephone. Addresses as "sip:user@host"; empty: none.
struct line_features {
    bool do_not_disturb = false;
    std::string forward_always, forward_busy, forward_no_answer;
    std::string last_caller;
    std::string last_dialled;

    /// Carries out the ones that change something; false: `what` is none of them.
    bool apply(feature what, std::string const& to);
};

/// What keys stand for.
struct dialled_number {
    dial_plan::verdict reached = dial_plan::verdict::wrong;
    feature what = feature::none;  ///< none: it is a number to call
    std::string destination;       ///< of the dial plan, for the part behind a code; empty when there is none (yet)
};

/// The codes go before the dial plan; behind a code that wants a number the plan judges what follows.
dialled_number judge_keys(std::vector<feature_code> const& codes, dial_plan const& plan, std::string_view keys);

}  // namespace fxsphone
