#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/media_options.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

struct media_options {
    std::uint16_t call = 0;
    codec_options codec;
    srtp_options srtp;
    std::string ssrc;
    std::string rtp;
    std::string rtcp;
    bool no_rtcp = false;
    bool tcp = false;
    std::optional<std::string> xr_mode;
};

void apply_destination(media_options const& options, protocol::media_command& command) {
    if (options.rtp.empty()) {
        if (options.tcp || options.no_rtcp || !options.rtcp.empty()) {
            throw failure(exit_code::usage,
                          "--rtcp, --no-rtcp and --tcp need --rtp: the process sets both destinations together");
        }
        return;
    }
    command.rtp_dest = address_value("--rtp", options.rtp);
    if (!options.rtcp.empty())
        command.rtcp_dest = address_value("--rtcp", options.rtcp);
    else if (!options.no_rtcp)
        command.rtcp_dest = rtcp_beside(*command.rtp_dest);
    if (options.tcp)
        command.tcp = true;
}

protocol::media_command media_from(media_options const& options, known_call const* before) {
    protocol::media_command command;
    command.call = options.call;
    apply(options.codec, before, command);
    apply_destination(options, command);
    if (options.xr_mode)
        command.xr_mode = xr_mode_text("--xr", *options.xr_mode);
    apply(options.srtp, command);
    if (!options.ssrc.empty()) {
        if (!command.send) {
            throw failure(exit_code::usage, "--ssrc needs --codec: the process sets the SSRC only with the codec");
        }
        command.ssrc = secret_value("--ssrc", options.ssrc, 4);
    }
    if (!command.send && !command.rtp_dest && !command.xr_mode && !command.srtp_rx_key && !command.srtp_tx_key)
        throw failure(exit_code::usage, "nothing to set: give --codec, --rtp, --xr or a key");
    return command;
}

}  // namespace

void add_media(CLI::App& app, program& p) {
    auto options = std::make_shared<media_options>();
    CLI::App* sub = add_command(app, p, "media", "Set codec, destination, RTCP XR and SRTP keys of a call",
                                [options](settings const& global) {
                                    media_from(*options, nullptr);  // finds wrong options before anything is sent
                                    connection link(global);
                                    require_open(link, options->call);
                                    auto const ledger = link.ask_ledger();
                                    protocol::media_command const command =
                                        media_from(*options, ledger ? ledger->find(options->call) : nullptr);
                                    warn_of_digits_in_band(command);
                                    link.run(protocol::encode(command));
                                });
    sub->add_option("--call,-c", options->call, "Call index, 0 to 7")->required()->check(call_index());
    add_codec_options(*sub, options->codec);
    sub->add_option("--ssrc", options->ssrc, "SSRC to send, 8 hexadecimal digits (default: the process draws one)");
    sub->add_option("--rtp", options->rtp, "ADDR:PORT to send RTP to");
    sub->add_option("--rtcp", options->rtcp, "ADDR:PORT to send RTCP to (default: RTP port + 1)");
    sub->add_flag("--no-rtcp", options->no_rtcp, "Send no RTCP")->excludes("--rtcp");
    sub->add_flag("--tcp", options->tcp, "Media over TCP connections to these addresses");
    sub->add_option("--xr", options->xr_mode, xr_help);
    add_srtp_options(*sub, options->srtp);
}

}  // namespace fxsctl
