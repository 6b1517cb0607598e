#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/fxsctl/call_ledger.h"
#include "tools/fxsctl/settings.h"
#include "tools/protocol/commands.h"

/// The options of `media` and `call` that become groups of the media command.
namespace fxsctl {

/// The options that say how audio is coded, shared by `media` and `call`.
struct codec_options {
    std::string codec;
    std::optional<std::uint8_t> payload_type;
    std::optional<std::uint8_t> event_payload_type;
    std::vector<std::string> map;
    std::optional<std::uint16_t> ptime_ms;
    bool no_events = false;
};

void add_codec_options(CLI::App& sub, codec_options& options);

/// Fills the codec group of the command; leaves it alone when no codec is named. Telephone events get payload type 101,
/// or the next one that is free. Throws usage.
void apply(codec_options const& options, protocol::media_command& command);

/// The same in mid-call, where what the options leave open stays as it was: the payload map (the usual payload types of
/// all codecs when it is not known), telephone events and packet time.
void apply(codec_options const& options, known_call const* before, protocol::media_command& command);

/// Says on standard error why digits in-band are a bad choice, when the command chooses them.
void warn_of_digits_in_band(protocol::media_command const& command);
extern char const* const digits_in_band;

/// The options that key SRTP, shared by `media` and `call`.
struct srtp_options {
    std::string rx_key;
    std::string tx_key;
    std::optional<std::uint8_t> tag_bytes;
    std::string mki;
    bool draw = false;  ///< keys that were not given are drawn at random
};

void add_srtp_options(CLI::App& sub, srtp_options& options);

/// Fills the SRTP group of the command; leaves it alone when no key is given or drawn. Throws usage or local.
void apply(srtp_options const& options, protocol::media_command& command);

/// Explains the option; for its help.
extern char const* const xr_help;

/// Names separated by commas or blanks ("loss-rle=100,voip-metrics", "all") as the mode text of the process
/// ("pkt-loss-rle=100 voip-metrics"), whose own names are understood too. "" stays "". Throws usage for other names.
std::string xr_mode_text(std::string const& option, std::string const& names);

}  // namespace fxsctl
