#include "tools/fxsctl/xr_modes.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "tools/fxsctl/failure.h"

namespace fxsctl {
namespace {

struct mode {
    char const* name;
    char const* word;  // of the process
    bool has_size;
};

constexpr std::array<mode, 6> modes{{{"loss-rle", "pkt-loss-rle", true},
                                     {"dup-rle", "pkt-dup-rle", true},
                                     {"rcpt-times", "pkt-rcpt-times", true},
                                     {"rcvr-rtt", "rcvr-rtt", false},
                                     {"stat-summary", "stat-summary", false},
                                     {"voip-metrics", "voip-metrics", false}}};

bool is_size(std::string const& text) {
    return !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string word_for(std::string const& option, std::string const& asked) {
    std::size_t const equals = asked.find('=');
    std::string const name = asked.substr(0, equals);
    auto const known =
        std::ranges::find_if(modes, [&](mode const& m) { return name == m.name || name == m.word; });
    bool const sized = equals != std::string::npos;
    if (known == modes.end() || (sized && (!known->has_size || !is_size(asked.substr(equals + 1))))) {
        throw failure(exit_code::usage, option + ": \"" + asked +
                                            "\" is none of loss-rle[=BYTES], dup-rle[=BYTES], "
                                            "rcpt-times[=BYTES], rcvr-rtt, stat-summary, voip-metrics, all");
    }
    return known->word + (sized ? asked.substr(equals) : "");
}

}  // namespace

char const* const xr_help =
    "RTCP XR blocks, separated by commas: loss-rle[=BYTES] dup-rle[=BYTES] rcpt-times[=BYTES] rcvr-rtt "
    "stat-summary voip-metrics, or all; \"\" switches them off";

std::string xr_mode_text(std::string const& option, std::string const& names) {
    std::string separated = names;
    std::ranges::replace(separated, ',', ' ');
    std::istringstream words(separated);
    std::string text;
    auto const append = [&](std::string const& word) { text += (text.empty() ? "" : " ") + word; };
    for (std::string asked; words >> asked;)
        if (asked == "all")
            std::ranges::for_each(modes, [&](mode const& m) { append(m.word); });
        else
            append(word_for(option, asked));
    return text;
}

}  // namespace fxsctl
