#include "tools/fxsctl/complaint.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <span>
#include <string_view>

namespace fxsctl {
namespace {

/// Letters to be changed, added or left out to make one word of the other (Levenshtein).
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); i++) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 1; j <= b.size(); j++) {
            std::size_t const changed = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

}  // namespace

void complain(bool json, exit_code code, std::string const& message) {
    if (json) {
        nlohmann::ordered_json const line{{"error", message}, {"exit_code", static_cast<int>(code)}};
        std::cerr << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
    } else {
        std::cerr << "fxsctl: " << message << std::endl;
    }
}

std::string suggestion(CLI::App const& app, int argc, char const* const* argv) {
    constexpr std::size_t farthest = 2;
    std::string best;
    std::size_t nearest = farthest + 1;
    for (std::string_view const word : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
        for (CLI::App const* sub : app.get_subcommands([](CLI::App const*) { return true; })) {
            std::size_t const apart = distance(word, sub->get_name());
            if (apart == 0)
                return {};
            if (apart < nearest && apart < word.size()) {
                nearest = apart;
                best = sub->get_name();
            }
        }
    }
    return best;
}

bool wants_json(int argc, char const* const* argv) {
    return std::any_of(argv + 1, argv + argc, [](std::string_view word) { return word == "--json" || word == "-j"; });
}

}  // namespace fxsctl
