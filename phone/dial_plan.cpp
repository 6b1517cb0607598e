#include "phone/dial_plan.h"

#include <algorithm>

namespace fxsphone {

namespace {

using verdict = dial_plan::verdict;

bool fits(char pattern, char key) {
    return pattern == 'x' ? key >= '0' && key <= '9' : pattern == key;
}

verdict judge_rule(std::string_view pattern, std::string_view keys) {
    bool const open_ended = pattern.ends_with('.');
    if (open_ended)
        pattern.remove_suffix(1);
    if (!std::equal(keys.begin(), keys.begin() + std::ptrdiff_t(std::min(keys.size(), pattern.size())), pattern.begin(),
                    [](char key, char wanted) { return fits(wanted, key); }))
        return verdict::wrong;
    if (keys.size() < pattern.size())
        return verdict::partial;
    if (open_ended)
        return verdict::possible;
    return keys.size() == pattern.size() ? verdict::complete : verdict::wrong;
}

}  // namespace

verdict dial_plan::judge(std::string_view keys) const {
    verdict sum = verdict::wrong;
    for (dial_rule const& rule : rules) {
        verdict const one = judge_rule(rule.pattern, keys);
        if (one == verdict::wrong)
            continue;
        sum = sum == verdict::wrong || sum == one ? one : verdict::possible;
    }
    return sum;
}

std::string dial_plan::destination(std::string_view keys) const {
    auto const rule = std::ranges::find_if(
        rules, [&](dial_rule const& one) { return judge_rule(one.pattern, keys) >= verdict::possible; });
    if (rule == rules.end())
        return {};
    std::string text = rule->destination;
    for (std::size_t at = text.find("{}"); at != text.npos; at = text.find("{}", at + keys.size()))
        text.replace(at, 2, keys);
    return text;
}

std::string dial_plan::problem(dial_rule const& rule) {
    if (rule.pattern.empty())
        return "the pattern is empty";
    std::size_t const wrong = rule.pattern.find_first_not_of("0123456789*#x");
    if (wrong != rule.pattern.npos && (rule.pattern[wrong] != '.' || wrong + 1 != rule.pattern.size()))
        return std::string("'") + rule.pattern[wrong] + "' is none of 0 to 9, *, #, x and a last '.'";
    return {};
}

}  // namespace fxsphone
