#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/fxsctl/settings.h"

/// The subcommands of fxsctl. Each function adds one or a few to the command line; running them is left to main.
namespace fxsctl {

/// Filled while the command line is parsed. `action` does what was asked; it throws `failure`.
struct program {
    settings global;
    std::function<void(settings const&)> action;
};

/// Adds a subcommand that runs `action` once the whole command line is understood.
inline CLI::App* add_command(CLI::App& app, program& p, std::string const& name, std::string const& help,
                             std::function<void(settings const&)> action) {
    CLI::App* sub = app.add_subcommand(name, help);
    sub->fallthrough();  // the shared options may stand behind the subcommand too
    sub->callback([&p, action = std::move(action)] { p.action = action; });
    return sub;
}

void add_session(CLI::App& app, program& p);  ///< session, ping
void add_process(CLI::App& app, program& p);  ///< log-level, ntp-offset, dump
void add_monitor(CLI::App& app, program& p);
void add_call(CLI::App& app, program& p);
void add_hold(CLI::App& app, program& p);  ///< hold, resume, refresh
void add_open(CLI::App& app, program& p);
void add_media(CLI::App& app, program& p);
void add_line(CLI::App& app, program& p);   ///< tdm, end
void add_tones(CLI::App& app, program& p);  ///< play, tones, dtmf
void add_tunnel(CLI::App& app, program& p);
void add_device(CLI::App& app, program& p);  ///< led, reset-base, signal, loopback-test
void add_decode(CLI::App& app, program& p);
void add_doctor(CLI::App& app, program& p);
void add_quality(CLI::App& app, program& p);
void add_resync(CLI::App& app, program& p);

}  // namespace fxsctl
