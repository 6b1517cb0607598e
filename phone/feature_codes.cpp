#include "phone/feature_codes.h"

#include <algorithm>

namespace fxsphone {

namespace {

using verdict = dial_plan::verdict;

bool takes_number(feature what) {
    return what == feature::forward_always || what == feature::forward_busy || what == feature::forward_no_answer ||
           what == feature::hide_number || what == feature::transfer;
}

dialled_number behind_code(feature what, dial_plan const& plan, std::string_view rest) {
    if (!takes_number(what))
        return {rest.empty() ? verdict::complete : verdict::wrong, what, {}};
    return {rest.empty() ? verdict::partial : plan.judge(rest), what, plan.destination(rest)};
}

}  // namespace

bool line_features::apply(feature what, std::string const& to) {
    switch (what) {
        case feature::forward_always: forward_always = to; return true;
        case feature::forward_busy: forward_busy = to; return true;
        case feature::forward_no_answer: forward_no_answer = to; return true;
        case feature::forward_off: forward_always = forward_busy = forward_no_answer = ""; return true;
        case feature::do_not_disturb: do_not_disturb = true; return true;
        case feature::do_not_disturb_off: do_not_disturb = false; return true;
        case feature::none:
        case feature::call_back:
        case feature::redial:
        case feature::hide_number:
        case feature::transfer: return false;
    }
    return false;
}

dialled_number judge_keys(std::vector<feature_code> const& codes, dial_plan const& plan, std::string_view keys) {
    feature_code const* found = nullptr;
    bool may_become = false;
    for (feature_code const& one : codes) {
        if (keys.starts_with(one.keys) && (found == nullptr || one.keys.size() > found->keys.size()))
            found = &one;
        may_become = may_become || one.keys.starts_with(keys);
    }
    if (found != nullptr)
        return behind_code(found->what, plan, keys.substr(found->keys.size()));
    dialled_number number{plan.judge(keys), feature::none, plan.destination(keys)};
    if (may_become)
        number.reached = number.destination.empty() ? verdict::partial : verdict::possible;
    return number;
}

}  // namespace fxsphone
