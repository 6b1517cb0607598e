#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fxsphone {

/// One row of the dial plan. The pattern is made of keys (0 to 9, *, #), `x` for any of 0 to 9, and at its end `.` for
/// any number of further keys. In the destination `{}` stands for what was dialled.
struct dial_rule {
    std::string pattern;
    std::string destination;
};

/// Which destination stands for the keys pressed so far.
class dial_plan {
public:
    enum class verdict {
        wrong,     ///< no rule begins like this
        partial,   ///< more keys are needed
        possible,  ///< a number, but a longer one may be meant: wait for the time-out or for #
        complete,  ///< a number, and no other rule goes on from here
    };

    /// Without rules every key is wrong.
    dial_plan() = default;
    /// The rules are sound, see problem(). The first that fits counts.
    explicit dial_plan(std::vector<dial_rule> table) : rules(std::move(table)) {}

    /// Of keys in the order in which they were pressed.
    verdict judge(std::string_view keys) const;
    /// The destination of the first rule that fits all of `keys`; empty when none does.
    std::string destination(std::string_view keys) const;

    /// What is wrong with a rule, as a text that names the character; empty when it is sound.
    static std::string problem(dial_rule const& rule);

private:
    std::vector<dial_rule> rules;
};

}  // namespace fxsphone
