#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/protocol/address.h"
#include "tools/protocol/codecs.h"
#include "tools/protocol/commands.h"

/// Values of the protocol from texts of the command line. Each function throws a usage `failure` that names the option
/// and what it expects.
namespace fxsctl {

/// Checks for CLI11 options.
CLI::Range call_index();    ///< 0 to 7
CLI::Range line_index();    ///< 0 to 3
CLI::Range short_number();  ///< 0 to 65535
CLI::Range payload_type();  ///< 0 to 127

protocol::address address_value(std::string const& option, std::string const& text);
/// Where RTCP goes when nothing else is said: one port above RTP (RFC 3550 section 11). nullopt above port 65534.
std::optional<protocol::address> rtcp_beside(protocol::address const& rtp);

protocol::bytes ip_value(std::string const& option, std::string const& text);
protocol::bytes hex_value(std::string const& option, std::string const& text);

/// Hexadecimal of exactly `length` bytes, or "@FILE" for a file that holds it (so that no key shows up in `ps`).
protocol::bytes secret_value(std::string const& option, std::string const& text, std::size_t length);

protocol::codec_format const& codec_value(std::string const& option, std::string const& text);

/// "PT=CODEC", e.g. "8=pcma".
protocol::codec_choice map_entry_value(std::string const& option, std::string const& text);

}  // namespace fxsctl
