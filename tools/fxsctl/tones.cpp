#include "tools/fxsctl/tones.h"

#include <array>
#include <string>

namespace fxsctl {
namespace {

constexpr std::array<tone_set, 16> sets{{
    {1, "us", "440+480 2/4", "350+440"},
    {2, "uk", "400+450 0.4/0.2/0.4/2", "350+450"},
    {3, "de", "425 1/4", "425"},
    {4, "at", "420+450 1/5", "425"},
    {5, "nl", "425+450 1/4", "150+450"},
    {6, "se", "425 1/5", "425"},
    {7, "", "425 1/4, busy 0.5/0.5, congestion 0.25/0.25", "425"},
    {8, "", "425 1/4, busy 0.25/0.25", "425"},
    {9, "jp", "400 1/2", "400"},
    {10, "", "425+500 1/4", "425"},
    {11, "it", "425 1/4", "425 0.6/1/0.2/0.2"},
    {12, "fr", "440 1.5/3.5", "440"},
    {13, "", "400 0.4/0.2/0.4/2", "400+425"},
    {14, "", "400+440 1/3", "400"},
    {15, "es", "425 1.5/3", "425"},
    {16, "", "400 0.4/0.2/0.4/2", "425"},
}};

constexpr std::array<tone_kind, 4> kinds{{
    {1, "ringback", "the other side is rung"},
    {2, "busy", "the other side is busy"},
    {3, "congestion", "no way through (reorder)"},
    {4, "dial", "dial now"},
}};

template <class Table>
std::optional<std::uint8_t> find(Table const& table, std::string_view text) {
    for (auto const& entry : table)
        if ((!text.empty() && entry.name == text) || std::to_string(entry.number) == text)
            return entry.number;
    return std::nullopt;
}

}  // namespace

std::span<tone_set const> tone_sets() {
    return sets;
}

std::span<tone_kind const> tone_kinds() {
    return kinds;
}

std::optional<std::uint8_t> find_tone_set(std::string_view name_or_number) {
    return find(sets, name_or_number);
}

std::optional<std::uint8_t> find_tone_kind(std::string_view name_or_number) {
    return find(kinds, name_or_number);
}

}  // namespace fxsctl
