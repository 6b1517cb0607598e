#include "lib/protocol.h"
#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/media_options.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

struct call_options {
    std::vector<std::uint16_t> calls;  ///< one with --to, two without
    std::vector<std::uint16_t> lines;
    std::string to;
    std::string rtcp;
    std::string via = "127.0.0.1";
    codec_options codec;
    srtp_options srtp;
    bool show_keys = false;
    bool tcp = false;
    std::string xr_mode;
    std::string call_id;
    std::optional<std::uint16_t> port_min;
    std::optional<std::uint16_t> port_max;
};

void check_calls(call_options const& options) {
    std::size_t const wanted = options.to.empty() ? 2 : 1;
    if (options.calls.size() != wanted) {
        throw failure(exit_code::usage, "give one call index and --to ADDR:PORT, or two call indexes to connect");
    }
    if (wanted == 2 && options.calls[0] == options.calls[1])
        throw failure(exit_code::usage, "a call cannot be connected with itself");
    if (wanted == 2 && (!options.rtcp.empty() || options.tcp))
        throw failure(exit_code::usage, "--rtcp and --tcp go with --to");
    bool const both_keys = !options.srtp.rx_key.empty() && !options.srtp.tx_key.empty();
    if (wanted == 1 && options.srtp.draw && !both_keys && !options.show_keys) {
        throw failure(exit_code::usage,
                      "--srtp draws keys that the peer must be told: add --show-keys, or give both keys");
    }
}

/// By default a call goes on the line of its own number.
std::vector<std::uint16_t> lines_for(call_options const& options) {
    if (!options.lines.empty() && options.lines.size() != options.calls.size())
        throw failure(exit_code::usage, "give as many lines as calls");
    std::vector<std::uint16_t> const lines = options.lines.empty() ? options.calls : options.lines;
    for (std::uint16_t const line : lines) {
        if (line >= protocol::slot_count) {
            throw failure(exit_code::usage, "there is no line " + std::to_string(line) + "; choose with --line");
        }
    }
    return lines;
}

protocol::open_command open_from(call_options const& options, std::uint16_t call) {
    std::string const id = options.call_id.empty() ? "fxsctl-" + std::to_string(call) : options.call_id;
    return {call, options.port_min, options.port_max, std::nullopt, id};
}

/// The keys of the first call; the second one has them crossed. Nothing else of the command is filled.
protocol::media_command keys_from(call_options const& options) {
    protocol::media_command keys;
    apply(options.srtp, keys);
    return keys;
}

protocol::media_command crossed(protocol::media_command keys) {
    std::swap(keys.srtp_rx_key, keys.srtp_tx_key);
    return keys;
}

protocol::media_command media_from(call_options const& options, std::uint16_t call, protocol::address const& to,
                                   protocol::media_command const& keys) {
    protocol::media_command command = keys;
    command.call = call;
    apply(options.codec, command);
    command.rtp_dest = to;
    command.rtcp_dest = options.rtcp.empty() ? rtcp_beside(to) : address_value("--rtcp", options.rtcp);
    if (options.tcp)
        command.tcp = true;
    if (!options.xr_mode.empty())
        command.xr_mode = xr_mode_text("--xr", options.xr_mode);
    return command;
}

void start_media(connection& link, protocol::media_command const& media, std::uint16_t line) {
    protocol::bytes commands = protocol::encode(media);
    protocol::bytes const tdm = protocol::encode(protocol::tdm_command{media.call, line});
    commands.insert(commands.end(), tdm.begin(), tdm.end());
    link.run(std::move(commands));
}

protocol::description describe_call(protocol::open_reply const& ports, std::uint16_t line,
                                    protocol::media_command const& media, bool show_keys) {
    protocol::description d{"call",
                            {{"call", std::int64_t{ports.call}},
                             {"line", std::int64_t{line}},
                             {"rtp_port", std::int64_t{ports.rtp_port}},
                             {"rtcp_port", std::int64_t{ports.rtcp_port}},
                             {"remote", protocol::to_text(*media.rtp_dest)}}};
    if (show_keys && media.srtp_rx_key)
        d.fields.push_back({"srtp_rx_key", protocol::to_hex(*media.srtp_rx_key)});
    if (show_keys && media.srtp_tx_key)
        d.fields.push_back({"srtp_tx_key", protocol::to_hex(*media.srtp_tx_key)});
    return d;
}

void end_calls(connection& link, std::vector<std::uint16_t> const& calls) {
    for (std::uint16_t const call : calls)
        link.client().send(protocol::encode(protocol::end_command{call}));
}

std::vector<protocol::description> call_outside(call_options const& options, std::vector<std::uint16_t> const& lines,
                                                connection& link) {
    protocol::address const to = address_value("--to", options.to);
    protocol::open_reply const ports = open_call(link, open_from(options, options.calls[0]));
    protocol::media_command const media = media_from(options, options.calls[0], to, keys_from(options));
    start_media(link, media, lines[0]);
    return {describe_call(ports, lines[0], media, options.show_keys)};
}

std::vector<protocol::description> connect_two(call_options const& options, std::vector<std::uint16_t> const& lines,
                                               connection& link) {
    protocol::bytes const via = ip_value("--via", options.via);
    protocol::open_reply const ports[2] = {open_call(link, open_from(options, options.calls[0])),
                                           open_call(link, open_from(options, options.calls[1]))};
    protocol::media_command keys = keys_from(options);
    std::vector<protocol::description> made;
    for (std::size_t i = 0; i < 2; ++i) {
        protocol::address const remote{via, ports[1 - i].rtp_port};
        protocol::media_command const media = media_from(options, options.calls[i], remote, keys);
        start_media(link, media, lines[i]);
        made.push_back(describe_call(ports[i], lines[i], media, options.show_keys));
        keys = crossed(keys);
    }
    return made;
}

/// Finds wrong options before anything is opened.
void check_values(call_options const& options) {
    protocol::bytes const via = ip_value("--via", options.via);
    protocol::address const to = options.to.empty() ? protocol::address{via, 1} : address_value("--to", options.to);
    media_from(options, options.calls[0], to, keys_from(options));
}

void run_call(call_options options, settings const& global) {
    check_calls(options);
    options.codec.codec = options.codec.codec.empty() ? "pcma" : options.codec.codec;
    std::vector<std::uint16_t> const lines = lines_for(options);
    check_values(options);
    protocol::media_command chosen;
    apply(options.codec, chosen);
    warn_of_digits_in_band(chosen);
    connection link(global);
    try {
        auto const made = (options.to.empty() ? connect_two : call_outside)(options, lines, link);
        require_audio(link, options.calls, lines);
        for (protocol::description const& call : made)
            print(global, origin::result, call);
    } catch (failure const&) {
        end_calls(link, options.calls);  // no half call stays behind
        throw;
    }
}

}  // namespace

void add_call(CLI::App& app, program& p) {
    auto options = std::make_shared<call_options>();
    CLI::App* sub = add_command(app, p, "call", "Set a whole call up: to an address, or two calls of the process",
                                [options](settings const& global) { run_call(*options, global); });
    sub->add_option("calls", options->calls, "One call index (with --to) or two to connect with each other")
        ->required()
        ->expected(1, 2)
        ->check(call_index());
    sub->add_option("--line,--lines,-l", options->lines,
                    "Line of each call, separated by commas (default: the number of the call). A line that already "
                    "has a call makes a conference")
        ->delimiter(',')
        ->check(line_index());
    sub->add_option("--to", options->to, "ADDR:PORT of the remote RTP");
    sub->add_option("--rtcp", options->rtcp, "ADDR:PORT of the remote RTCP (default: RTP port + 1)");
    sub->add_option("--via", options->via, "Address over which two calls reach each other (default 127.0.0.1)");
    add_codec_options(*sub, options->codec);
    sub->add_option("--xr", options->xr_mode, xr_help);
    sub->add_option("--call-id", options->call_id, "Call identifier (default fxsctl-INDEX)");
    sub->add_option("--port-min", options->port_min, "Lowest local RTP port")->check(CLI::Range(1, 65534));
    sub->add_option("--port-max", options->port_max, "Local ports stay below this one")->check(CLI::Range(2, 65535));
    sub->add_flag("--tcp", options->tcp, "Media over TCP connections to --to and --rtcp");
    sub->add_flag("--srtp", options->srtp.draw,
                  "Encrypt; keys that are not given are drawn (given ones are the first call's)");
    sub->add_flag("--show-keys", options->show_keys, "Print the SRTP keys");
    add_srtp_options(*sub, options->srtp);
}

}  // namespace fxsctl
