#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/subcommands.h"
#include "tools/protocol/tags.h"

namespace fxsctl {
namespace {

struct tdm_options {
    std::uint16_t call = 0;
    std::optional<std::uint16_t> line;
    bool none = false;
};

void run_tdm(tdm_options const& options, settings const& global) {
    if (options.line.has_value() == options.none)
        throw failure(exit_code::usage, "give either --line or --none");
    std::uint16_t const slot = options.line.value_or(protocol::line_count);
    connection(global).run(protocol::encode(protocol::tdm_command{options.call, slot}));
}

struct end_options {
    std::vector<std::uint16_t> calls;
    bool all = false;
};

void run_end(end_options const& options, settings const& global) {
    if (options.calls.empty() != options.all)
        throw failure(exit_code::usage, "give either --call or --all");
    protocol::bytes commands;
    for (std::uint16_t call = 0; call < protocol::channel_count; ++call) {
        if (options.all || std::ranges::count(options.calls, call) != 0) {
            protocol::bytes const one = protocol::encode(protocol::end_command{call});
            commands.insert(commands.end(), one.begin(), one.end());
        }
    }
    connection(global).run(std::move(commands));
}

}  // namespace

void add_line(CLI::App& app, program& p) {
    auto tdm = std::make_shared<tdm_options>();
    CLI::App* sub =
        add_command(app, p, "tdm", "Put a call on a line, or take it off; two calls on one line confer",
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

}  // namespace fxsctl
