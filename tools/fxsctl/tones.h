// Names for the process's tone tables: 16 tone sets of four kinds each.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace fxsctl {

struct tone_set {
    std::uint8_t number;  // 1 to 16
    std::string_view
        name;  // country whose national tones (ITU-T E.180 supplement 2) the cadences match, or empty
    std::string_view ring_back;  // what tells it from the others: frequencies in Hz, on/off times in s
    std::string_view dial;
};

struct tone_kind {
    std::uint8_t number;  // 1 to 4
    std::string_view name;
    std::string_view meaning;
};

std::span<tone_set const> tone_sets();
std::span<tone_kind const> tone_kinds();

// By name or number; nullopt when there is none.
std::optional<std::uint8_t> find_tone_set(std::string_view name_or_number);
std::optional<std::uint8_t> find_tone_kind(std::string_view name_or_number);

}  // namespace fxsctl
