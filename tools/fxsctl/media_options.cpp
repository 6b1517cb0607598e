#include "tools/fxsctl/media_options.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <random>
#include <sstream>

#include "tools/fxsctl/argument_values.h"

namespace fxsctl {
namespace {

constexpr int shortest_ptime_ms = 10;
constexpr int longest_ptime_ms = 200;  ///< what the jitter buffer of a common peer holds

constexpr std::size_t key_and_salt_bytes = 30;  ///< RFC 3711 8.2: 128-bit master key, 112-bit master salt
constexpr std::uint8_t default_tag_bytes = 10;  ///< RFC 3711 8.2: 80-bit tag
constexpr int longest_tag_bytes = 20;           ///< all of HMAC-SHA1
constexpr std::size_t longest_mki_bytes = 128;  ///< RFC 4568 6.1

protocol::bytes random_key() {
    std::random_device source;
    protocol::bytes key(key_and_salt_bytes);
    for (std::uint8_t& byte : key)
        byte = static_cast<std::uint8_t>(source());
    return key;
}

struct mode {
    char const* name;
    char const* word;  ///< of the process
    bool has_size;
};

constexpr std::array<mode, 6> modes{{{"loss-rle", "pkt-loss-rle", true},
                                     {"dup-rle", "pkt-dup-rle", true},
                                     {"rcpt-times", "pkt-rcpt-times", true},
                                     {"rcvr-rtt", "rcvr-rtt", false},
                                     {"stat-summary", "stat-summary", false},
                                     {"voip-metrics", "voip-metrics", false}}};

constexpr int first_dynamic_type = 96;  ///< RFC 3551 section 6
constexpr int usual_event_type = 101;

bool is_taken(protocol::media_command const& command, int payload_type) {
    return command.send->payload_type == payload_type ||
           std::ranges::any_of(command.map, [&](auto const& one) { return one.payload_type == payload_type; });
}

void choose_events(codec_options const& options, protocol::media_command& command) {
    command.event_payload_type = options.event_payload_type;
    if (options.no_events || options.event_payload_type)
        return;
    int type = usual_event_type;
    while (is_taken(command, type))
        type = type < 127 ? type + 1 : first_dynamic_type;
    command.event_payload_type = static_cast<std::uint8_t>(type);
}

bool is_size(std::string const& text) {
    return !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string word_for(std::string const& option, std::string const& asked) {
    std::size_t const equals = asked.find('=');
    std::string const name = asked.substr(0, equals);
    auto const known = std::ranges::find_if(modes, [&](mode const& m) { return name == m.name || name == m.word; });
    bool const sized = equals != std::string::npos;
    if (known == modes.end() || (sized && (!known->has_size || !is_size(asked.substr(equals + 1))))) {
        throw failure(exit_code::usage, option + ": \"" + asked +
                                            "\" is none of loss-rle[=BYTES], dup-rle[=BYTES], "
                                            "rcpt-times[=BYTES], rcvr-rtt, stat-summary, voip-metrics, all");
    }
    return known->word + (sized ? asked.substr(equals) : "");
}

}  // namespace

void add_codec_options(CLI::App& sub, codec_options& options) {
    sub.add_option("--codec", options.codec,
                   "Codec to send: linear, pcmu, pcma, g729, gsm, g722, g726, or its number 0 to 6");
    sub.add_option("--pt", options.payload_type, "RTP payload type to send (default: the usual one of the codec)")
        ->check(payload_type());
    sub.add_option("--event-pt", options.event_payload_type,
                   "Payload type of telephone events, sent and received (default 101)")
        ->check(CLI::Range(1, 127));
    sub.add_flag("--no-events", options.no_events,
                 "No telephone events: digits go in-band, where few far ends find them")
        ->excludes("--event-pt");
    sub.add_option("--map", options.map,
                   "PT=CODEC: accept this payload type from the peer (repeatable; default: the one sent, in mid-call "
                   "also those before)");
    sub.add_option("--ptime", options.ptime_ms, "Packet time in ms, a multiple of 10 (default 20)")
        ->check(CLI::Range(shortest_ptime_ms, longest_ptime_ms));
}

void apply(codec_options const& options, protocol::media_command& command) {
    if (options.codec.empty()) {
        if (options.no_events || options.payload_type || options.event_payload_type || options.ptime_ms ||
            !options.map.empty()) {
            throw failure(exit_code::usage,
                          "--pt, --event-pt, --no-events, --map and --ptime need --codec: the process sets all of them "
                          "together, and "
                          "without a codec it would fall back to number 0");
        }
        return;
    }
    protocol::codec_format const& codec = codec_value("--codec", options.codec);
    if (codec.number == protocol::codec_number::telephone_event)
        throw failure(exit_code::usage, "--codec: telephone-event can only be received; use --event-pt");
    if (options.ptime_ms.value_or(20) % 10 != 0)
        throw failure(exit_code::usage, "--ptime: audio comes in blocks of 10 ms, give a multiple of 10");
    command.send = protocol::usual_choice(codec);
    command.send->payload_type = options.payload_type.value_or(command.send->payload_type);
    command.ptime_ms = options.ptime_ms;
    for (std::string const& entry : options.map)
        command.map.push_back(map_entry_value("--map", entry));
    if (options.map.empty())
        command.map.push_back(*command.send);
    choose_events(options, command);
}

void apply(codec_options const& options, known_call const* before, protocol::media_command& command) {
    codec_options filled = options;
    bool const had_codec = before != nullptr && before->send;
    if (had_codec && !options.no_events && !options.event_payload_type && before->event_payload_type != 0)
        filled.event_payload_type = before->event_payload_type;
    filled.no_events =
        options.no_events || (had_codec && before->event_payload_type == 0 && !options.event_payload_type);
    filled.ptime_ms = options.ptime_ms ? options.ptime_ms : had_codec ? before->ptime_ms : std::nullopt;
    apply(options.codec.empty() ? options : filled, command);
    if (!options.map.empty() || options.codec.empty())
        return;
    std::vector<protocol::codec_choice> kept;
    if (before == nullptr)
        for (protocol::codec_format const& one : protocol::codec_formats)
            if (one.payload_type < first_dynamic_type)
                kept.push_back(protocol::usual_choice(one));
    for (auto const& [type, codec] : before != nullptr ? before->accepted : std::map<std::uint8_t, std::uint8_t>())
        if (codec != protocol::codec_number::telephone_event)
            kept.push_back({codec, type});
    for (protocol::codec_choice const& one : kept)
        if (!is_taken(command, one.payload_type) && one.payload_type != command.event_payload_type)
            command.map.push_back(one);
}

char const* const digits_in_band =
    "digits go in-band, where independent detectors read 0 of 12 of them; telephone events (--event-pt) arrive";

void warn_of_digits_in_band(protocol::media_command const& command) {
    if (command.send && !command.event_payload_type)
        std::cerr << "fxsctl: " << digits_in_band << std::endl;
}

void add_srtp_options(CLI::App& sub, srtp_options& options) {
    sub.add_option("--srtp-rx-key", options.rx_key,
                   "Master key and salt for receiving: 30 bytes as 60 hexadecimal digits, or @FILE holding them");
    sub.add_option("--srtp-tx-key", options.tx_key, "The same for sending (and for RTCP in both directions)");
    sub.add_option("--srtp-tag", options.tag_bytes, "Length of the authentication tag in bytes (default 10, 0: none)")
        ->check(CLI::Range(0, longest_tag_bytes));
    sub.add_option("--srtp-mki", options.mki, "Master key identifier in hexadecimal (default: none)");
}

void apply(srtp_options const& options, protocol::media_command& command) {
    bool const keyed = options.draw || !options.rx_key.empty() || !options.tx_key.empty();
    if (!keyed) {
        if (options.tag_bytes || !options.mki.empty())
            throw failure(exit_code::usage, "--srtp-tag and --srtp-mki need --srtp-rx-key or --srtp-tx-key");
        return;
    }
    if (!options.rx_key.empty())
        command.srtp_rx_key = secret_value("--srtp-rx-key", options.rx_key, key_and_salt_bytes);
    else if (options.draw)
        command.srtp_rx_key = random_key();
    if (!options.tx_key.empty())
        command.srtp_tx_key = secret_value("--srtp-tx-key", options.tx_key, key_and_salt_bytes);
    else if (options.draw)
        command.srtp_tx_key = random_key();
    command.srtp_tag_bytes = options.tag_bytes.value_or(default_tag_bytes);
    if (!options.mki.empty()) {
        command.srtp_mki = hex_value("--srtp-mki", options.mki);
        if (command.srtp_mki->size() > longest_mki_bytes)
            throw failure(exit_code::usage, "--srtp-mki: at most 128 bytes");
    }
}

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
