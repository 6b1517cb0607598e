#pragma once

#include <optional>
#include <string_view>

namespace fxsphone {

/// What the driver of the lines says over its message pipe (report 25).
struct driver_word {
    enum class kind { off_hook, on_hook, key } what;
    int line = 0;  ///< from 0
    char key = 0;  ///< only of kind key

    bool operator==(driver_word const&) const = default;
};

/// Reads "off-hook N", "on-hook N" or "key N K", N from 0 to 3, K one of 0 to 9, *, #, A to D. nullopt for anything
/// else.
inline std::optional<driver_word> read_driver_word(std::string_view text) {
    constexpr std::pair<std::string_view, driver_word::kind> words[] = {
        {"off-hook ", driver_word::kind::off_hook},
        {"on-hook ", driver_word::kind::on_hook},
        {"key ", driver_word::kind::key},
    };
    for (auto const& [word, what] : words) {
        if (!text.starts_with(word))
            continue;
        std::string_view const rest = text.substr(word.size());
        bool const is_key = what == driver_word::kind::key;
        if (rest.size() != (is_key ? 3u : 1u) || rest[0] < '0' || rest[0] > '3')
            return std::nullopt;
        if (is_key && (rest[1] != ' ' || std::string_view("0123456789*#ABCD").find(rest[2]) == rest.npos))
            return std::nullopt;
        return driver_word{what, rest[0] - '0', is_key ? rest[2] : '\0'};
    }
    return std::nullopt;
}

}  // namespace fxsphone
