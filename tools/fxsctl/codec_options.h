// The options that say how audio is coded, shared by `media` and `call`.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/protocol/commands.h"

namespace fxsctl {

struct codec_options {
    std::string codec;
    std::optional<std::uint8_t> payload_type;
    std::optional<std::uint8_t> event_payload_type;
    std::vector<std::string> map;
    std::optional<std::uint16_t> ptime_ms;
};

void add_codec_options(CLI::App& sub, codec_options& options);

// Fills the codec group of the command; leaves it alone when no codec is named. Throws usage.
void apply(codec_options const& options, protocol::media_command& command);

}  // namespace fxsctl
