#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

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

void add_tunnel(CLI::App& app, program& p) {
    auto options = std::make_shared<tunnel_options>();
    CLI::App* sub = add_command(app, p, "tunnel", "Send bytes (STUN, ZRTP, ...) from a media port of a call",
                                [options](settings const& global) {
                                    protocol::tunnel_command const command = tunnel_from(*options);
                                    connection(global).run(protocol::encode(command));
                                });
    sub->add_option("--call,-c", options->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("--to", options->to, "ADDR:PORT (default: where the media goes)");
    sub->add_option("--rtp", options->rtp, "Bytes in hexadecimal, to leave from the RTP port");
    sub->add_option("--rtcp", options->rtcp, "Bytes in hexadecimal, to leave from the RTCP port");
    sub->add_flag("--tcp", options->tcp, "Over the TCP connection to that address");
}

}  // namespace fxsctl
