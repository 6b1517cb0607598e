#include <algorithm>

#include "lib/protocol.h"
#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

void check_range(protocol::open_command const& command) {
    constexpr int default_min = 49152;
    int const min = command.port_min.value_or(default_min);
    if (command.port_max && *command.port_max <= min)
        throw failure(exit_code::usage, "--port-max must be above --port-min (" + std::to_string(min) + ")");
}

struct tdm_options {
    std::uint16_t call = 0;
    std::optional<std::uint16_t> line;
    bool none = false;
};

void run_tdm(tdm_options const& options, settings const& global) {
    if (options.line.has_value() == options.none)
        throw failure(exit_code::usage, "give either --line or --none");
    std::uint16_t const slot = options.line.value_or(std::uint16_t{protocol::no_slot});
    connection link(global);
    require_open(link, options.call);
    link.run(protocol::encode(protocol::tdm_command{options.call, slot}));
    if (options.line)
        require_on_line(link, options.call, *options.line);
}

struct end_options {
    std::vector<std::uint16_t> calls;
    bool all = false;
};

void run_end(end_options const& options, settings const& global) {
    if (options.calls.empty() != options.all)
        throw failure(exit_code::usage, "give either --call or --all");
    protocol::bytes commands;
    for (std::uint16_t call = 0; call < protocol::call_count; ++call) {
        if (options.all || std::ranges::count(options.calls, call) != 0) {
            protocol::bytes const one = protocol::encode(protocol::end_command{call});
            commands.insert(commands.end(), one.begin(), one.end());
        }
    }
    connection(global).run(std::move(commands));
}

struct tunnel_options {
    std::uint16_t call = 0;
    std::string to;
    std::string rtp;
    std::string rtcp;
    bool tcp = false;
};

protocol::tunnel_command tunnel_from(tunnel_options const& options) {
    if (options.rtp.empty() == options.rtcp.empty())
        throw failure(exit_code::usage, "give either --rtp or --rtcp: the port the bytes leave from");
    protocol::tunnel_command command;
    command.call = options.call;
    command.tcp = options.tcp;
    if (!options.to.empty())
        command.to = address_value("--to", options.to);
    if (!options.rtp.empty())
        command.rtp_data = hex_value("--rtp", options.rtp);
    else
        command.rtcp_data = hex_value("--rtcp", options.rtcp);
    return command;
}

}  // namespace

void add_open(CLI::App& app, program& p) {
    auto command = std::make_shared<protocol::open_command>();
    CLI::App* sub = add_command(app, p, "open", "Open a call: bind its RTP and RTCP ports and print them",
                                [command](settings const& global) {
                                    check_range(*command);
                                    connection link(global);
                                    print(global, origin::report, protocol::describe(open_call(link, *command)));
                                });
    sub->add_option("--call,-c", command->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("--port-min", command->port_min, "Lowest RTP port (default 49152)")->check(CLI::Range(1, 65534));
    sub->add_option("--port-max", command->port_max, "Ports below this one are tried (default 65536)")
        ->check(CLI::Range(2, 65535));
    sub->add_option("--tos", command->tos, "IP type of service of the RTP sockets (default 160, 0: leave alone)")
        ->check(CLI::Range(0, 255));
    sub->add_option("--call-id", command->call_id,
                    "Call identifier; when there is one, copies of all RTCP packets are reported with it");
}

void add_line(CLI::App& app, program& p) {
    auto tdm = std::make_shared<tdm_options>();
    CLI::App* sub = add_command(app, p, "tdm", "Put a call on a line, or take it off; two calls on one line confer",
                                [tdm](settings const& global) { run_tdm(*tdm, global); });
    sub->add_option("--call,-c", tdm->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("--line,-l", tdm->line, "Line (TDM slot), 0 to 3")->check(line_index());
    sub->add_flag("--none", tdm->none, "Take the call off its line");

    auto end = std::make_shared<end_options>();
    sub = add_command(app, p, "end", "End calls: close their ports and forget their settings",
                      [end](settings const& global) { run_end(*end, global); });
    sub->add_option("--call,-c,calls", end->calls, "Call indexes, 0 to 7")->check(call_index());
    sub->add_flag("--all", end->all, "All eight");
}

void add_tunnel(CLI::App& app, program& p) {
    auto options = std::make_shared<tunnel_options>();
    CLI::App* sub = add_command(app, p, "tunnel", "Send bytes (STUN, ZRTP, ...) from a media port of a call",
                                [options](settings const& global) {
                                    protocol::tunnel_command const command = tunnel_from(*options);
                                    connection link(global);
                                    require_open(link, options->call);
                                    link.run(protocol::encode(command));
                                });
    sub->add_option("--call,-c", options->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("--to", options->to, "ADDR:PORT (default: where the media goes)");
    sub->add_option("--rtp", options->rtp, "Bytes in hexadecimal, to leave from the RTP port");
    sub->add_option("--rtcp", options->rtcp, "Bytes in hexadecimal, to leave from the RTCP port");
    sub->add_flag("--tcp", options->tcp, "Over the TCP connection to that address");
}

}  // namespace fxsctl
