#include <random>

#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/codec_options.h"
#include "tools/fxsctl/open_request.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/srtp_options.h"
#include "tools/fxsctl/subcommands.h"
#include "tools/protocol/tags.h"

namespace fxsctl {
namespace {

struct call_options {
    std::vector<std::uint16_t> calls;  // one with --to, two without
    std::vector<std::uint16_t> lines;
    std::string to;
    std::string rtcp;
    std::string via = "127.0.0.1";
    codec_options codec;
    srtp_options srtp;
    bool encrypt = false;
    std::string xr_mode;
    std::string call_id;
    std::optional<std::uint16_t> port_min;
    std::optional<std::uint16_t> port_max;
};

void check_calls(const call_options& options) {
    const std::size_t wanted = options.to.empty() ? 2 : 1;
    if (options.calls.size() != wanted) {
        throw failure(exit_code::usage,
                      "give one call index and --to ADDR:PORT, or two call indexes to connect");
    }
    if (wanted == 2 && options.calls[0] == options.calls[1]) {
        throw failure(exit_code::usage, "a call cannot be connected with itself");
    }
    if (wanted == 2 && (!options.rtcp.empty() || !options.srtp.rx_key.empty() ||
                        !options.srtp.tx_key.empty() || !options.srtp.mki.empty())) {
        throw failure(exit_code::usage,
                      "--rtcp, keys and --srtp-mki go with --to; two calls are encrypted with --srtp");
    }
    if (wanted == 1 && options.encrypt) {
        throw failure(exit_code::usage,
                      "--srtp draws keys for two calls of one process; with --to give the keys");
    }
}

// By default a call goes on the line of its own number.
std::vector<std::uint16_t> lines_for(const call_options& options) {
    if (!options.lines.empty() && options.lines.size() != options.calls.size()) {
        throw failure(exit_code::usage, "give as many lines as calls");
    }
    const std::vector<std::uint16_t> lines = options.lines.empty() ? options.calls : options.lines;
    for (const std::uint16_t line : lines) {
        if (line >= protocol::line_count) {
            throw failure(exit_code::usage,
                          "there is no line " + std::to_string(line) + "; choose with --line");
        }
    }
    return lines;
}

protocol::open_command open_from(const call_options& options, std::uint16_t call) {
    const std::string id = options.call_id.empty() ? "fxsctl-" + std::to_string(call) : options.call_id;
    return {call, options.port_min, options.port_max, std::nullopt, id};
}

protocol::media_command media_from(const call_options& options, std::uint16_t call,
                                   const protocol::address& to) {
    protocol::media_command command;
    command.call = call;
    apply(options.codec, command);
    command.rtp_dest = to;
    command.rtcp_dest = options.rtcp.empty() ? rtcp_beside(to) : address_value("--rtcp", options.rtcp);
    if (!options.xr_mode.empty()) {
        command.xr_mode = options.xr_mode;
    }
    if (!options.encrypt) {
        apply(options.srtp, command);
    }
    return command;
}

protocol::bytes random_key() {
    constexpr std::size_t key_and_salt_bytes = 30;
    std::random_device source;
    protocol::bytes key(key_and_salt_bytes);
    for (std::uint8_t& byte : key) {
        byte = static_cast<std::uint8_t>(source());
    }
    return key;
}

void start_media(connection& link, const protocol::media_command& media, std::uint16_t line) {
    protocol::bytes commands = protocol::encode(media);
    const protocol::bytes tdm = protocol::encode(protocol::tdm_command{media.call, line});
    commands.insert(commands.end(), tdm.begin(), tdm.end());
    link.run(std::move(commands));
}

void print_call(const settings& global, const protocol::open_reply& ports, std::uint16_t line,
                const protocol::address& remote) {
    print(global, origin::result,
          {"call",
           {{"call", std::int64_t{ports.call}},
            {"line", std::int64_t{line}},
            {"rtp_port", std::int64_t{ports.rtp_port}},
            {"rtcp_port", std::int64_t{ports.rtcp_port}},
            {"remote", protocol::to_text(remote)}}});
}

void end_calls(connection& link, const std::vector<std::uint16_t>& calls) {
    for (const std::uint16_t call : calls) {
        link.client().send(protocol::encode(protocol::end_command{call}));
    }
}

void call_outside(const call_options& options, const std::vector<std::uint16_t>& lines, connection& link) {
    const protocol::address to = address_value("--to", options.to);
    const protocol::open_reply ports = open_call(link, open_from(options, options.calls[0]));
    start_media(link, media_from(options, options.calls[0], to), lines[0]);
    print_call(link.global(), ports, lines[0], to);
}

void connect_two(const call_options& options, const std::vector<std::uint16_t>& lines, connection& link) {
    const protocol::bytes via = ip_value("--via", options.via);
    const protocol::open_reply ports[2] = {open_call(link, open_from(options, options.calls[0])),
                                           open_call(link, open_from(options, options.calls[1]))};
    const protocol::bytes keys[2] = {random_key(), random_key()};
    for (std::size_t i = 0; i < 2; ++i) {
        const protocol::address remote{via, ports[1 - i].rtp_port};
        protocol::media_command media = media_from(options, options.calls[i], remote);
        if (options.encrypt) {
            media.srtp_rx_key = keys[1 - i];
            media.srtp_tx_key = keys[i];
            media.srtp_tag_bytes = options.srtp.tag_bytes.value_or(10);
        }
        start_media(link, media, lines[i]);
        print_call(link.global(), ports[i], lines[i], remote);
    }
}

// Finds wrong options before anything is opened.
void check_values(const call_options& options) {
    const protocol::bytes via = ip_value("--via", options.via);
    const protocol::address to =
        options.to.empty() ? protocol::address{via, 1} : address_value("--to", options.to);
    media_from(options, options.calls[0], to);
}

void run_call(call_options options, const settings& global) {
    check_calls(options);
    options.codec.codec = options.codec.codec.empty() ? "pcma" : options.codec.codec;
    const std::vector<std::uint16_t> lines = lines_for(options);
    check_values(options);
    connection link(global);
    try {
        (options.to.empty() ? connect_two : call_outside)(options, lines, link);
    } catch (const failure&) {
        end_calls(link, options.calls);  // half a call helps nobody
        throw;
    }
}

}  // namespace

void add_call(CLI::App& app, program& p) {
    auto options = std::make_shared<call_options>();
    CLI::App* sub =
        add_command(app, p, "call", "Set a whole call up: to an address, or two calls of the process",
                    [options](const settings& global) { run_call(*options, global); });
    sub->add_option("calls", options->calls, "One call index (with --to) or two to connect with each other")
        ->required()
        ->expected(1, 2)
        ->check(call_index());
    sub->add_option(
           "--line,--lines,-l", options->lines,
           "Line of each call, separated by commas (default: the number of the call). A line that already "
           "has a call makes a conference")
        ->delimiter(',')
        ->check(line_index());
    sub->add_option("--to", options->to, "ADDR:PORT of the remote RTP");
    sub->add_option("--rtcp", options->rtcp, "ADDR:PORT of the remote RTCP (default: RTP port + 1)");
    sub->add_option("--via", options->via,
                    "Address over which two calls reach each other (default 127.0.0.1)");
    add_codec_options(*sub, options->codec);
    sub->add_option("--xr", options->xr_mode, "RTCP XR blocks, see `fxsctl media --help`");
    sub->add_option("--call-id", options->call_id, "Call identifier (default fxsctl-INDEX)");
    sub->add_option("--port-min", options->port_min, "Lowest local RTP port")->check(CLI::Range(1, 65534));
    sub->add_option("--port-max", options->port_max, "Local ports stay below this one")
        ->check(CLI::Range(2, 65535));
    sub->add_flag("--srtp", options->encrypt, "Encrypt between two calls, with keys drawn for this call");
    add_srtp_options(*sub, options->srtp);
}

}  // namespace fxsctl
