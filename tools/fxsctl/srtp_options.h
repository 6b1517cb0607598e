// The options that key SRTP, shared by `media` and `call`.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/protocol/commands.h"

namespace fxsctl {

struct srtp_options {
    std::string rx_key;
    std::string tx_key;
    std::optional<std::uint8_t> tag_bytes;
    std::string mki;
    bool draw = false;  // keys that were not given are drawn at random
};

void add_srtp_options(CLI::App& sub, srtp_options& options);

// Fills the SRTP group of the command; leaves it alone when no key is given or drawn. Throws usage or local.
void apply(srtp_options const& options, protocol::media_command& command);

}  // namespace fxsctl
