#include <iostream>

#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

struct hold_options {
    std::uint16_t call = 0;
    std::optional<std::uint16_t> line;
    std::string rtp;
    std::string rtcp;
};

std::optional<known_call> known(connection& link, std::uint16_t call) {
    auto const ledger = link.ask_ledger();
    known_call const* const found = ledger ? ledger->find(call) : nullptr;
    return found != nullptr ? std::optional(*found) : std::nullopt;
}

/// The destination again, which empties the jitter buffer and what the line has piled up.
std::optional<protocol::media_command> same_destination(hold_options const& options,
                                                        std::optional<known_call> const& call) {
    protocol::media_command command;
    command.call = options.call;
    if (!options.rtp.empty()) {
        command.rtp_dest = address_value("--rtp", options.rtp);
        command.rtcp_dest =
            options.rtcp.empty() ? rtcp_beside(*command.rtp_dest) : address_value("--rtcp", options.rtcp);
        return command;
    }
    if (!call || !call->rtp_dest)
        return std::nullopt;
    command.rtp_dest = call->rtp_dest;
    command.rtcp_dest = call->rtcp_dest;
    if (call->tcp)
        command.tcp = true;
    return command;
}

void run_hold(hold_options const& options, settings const& global) {
    connection link(global);
    require_open(link, options.call);
    link.run(protocol::encode(protocol::tdm_command{options.call, std::uint16_t{protocol::no_slot}}));
}

void run_resume(hold_options const& options, settings const& global) {
    connection link(global);
    require_open(link, options.call);
    auto const call = known(link, options.call);
    std::optional<std::uint16_t> const before = call && call->line ? call->line : call ? call->last_line : std::nullopt;
    std::uint16_t const line = options.line.value_or(before.value_or(options.call));
    if (line >= protocol::slot_count)
        throw failure(exit_code::usage, "which line? Give --line; no monitor has seen the call on one");
    if (auto const again = same_destination(options, call))
        link.run(protocol::encode(*again));
    else
        std::cerr << "fxsctl: the destination is not known (no monitor, no --rtp): up to 3 s of old audio may be heard"
                  << std::endl;
    link.run(protocol::encode(protocol::tdm_command{options.call, line}));
    require_on_line(link, options.call, line);
}

void run_refresh(hold_options const& options, settings const& global) {
    connection link(global);
    require_open(link, options.call);
    auto const again = same_destination(options, known(link, options.call));
    if (!again)
        throw failure(exit_code::refused, "the destination of call " + std::to_string(options.call) +
                                              " is not known: no monitor has seen it; give --rtp ADDR:PORT");
    link.run(protocol::encode(*again));
}

CLI::App* add_one(CLI::App& app, program& p, char const* name, char const* help,
                  void (*run)(hold_options const&, settings const&), std::shared_ptr<hold_options> const& options) {
    CLI::App* sub = add_command(app, p, name, help, [options, run](settings const& global) { run(*options, global); });
    sub->add_option("--call,-c", options->call, "Call index, 0 to 7")->required()->check(call_index());
    return sub;
}

void add_destination(CLI::App& sub, hold_options& options) {
    sub.add_option("--rtp", options.rtp, "ADDR:PORT to send RTP to (default: as the monitor has seen it)");
    sub.add_option("--rtcp", options.rtcp, "ADDR:PORT to send RTCP to (default: RTP port + 1)")->needs("--rtp");
}

}  // namespace

void add_hold(CLI::App& app, program& p) {
    auto options = std::make_shared<hold_options>();
    add_one(app, p, "hold", "Take a call off its line: neither side hears the other, ports and settings stay", run_hold,
            options);
    CLI::App* sub = add_one(app, p, "resume", "Put a held call on its line again", run_resume, options);
    sub->add_option("--line,-l", options->line, "Line (default: the one before, or the number of the call)")
        ->check(line_index());
    add_destination(*sub, *options);
    sub = add_one(app, p, "refresh", "Take away a delay that a network hold-up left: sends the destination again",
                  run_refresh, options);
    add_destination(*sub, *options);
}

}  // namespace fxsctl
