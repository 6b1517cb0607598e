// fxsctl: commands the media process and shows what it reports, in place of call control or beside it.

#include <iostream>

#include "tools/fxsctl/settings.h"
#include "tools/fxsctl/subcommands.h"

namespace {

constexpr char const* footer =
    "The process obeys one peer at a time: whoever sent the last session command. Each run of fxsctl takes "
    "the\n"
    "session and so cuts off the one before it, unless `fxsctl monitor` runs: then all go through the "
    "monitor.\n"
    "Exit codes: 0 ok, 2 wrong arguments, 3 no answer, 4 refused or failed, 5 trouble with a local socket or "
    "file.";

void add_shared_options(CLI::App& app, fxsctl::settings& global) {
    app.add_option("--port,-p", global.port, "Control port of the process")
        ->envname("FXSMEDIA_PORT")
        ->check(CLI::Range(1, 65535));
    app.add_option("--host", global.host, "IPv4 address of the process (it listens on others only with --debug)")
        ->check(CLI::ValidIPV4);
    app.add_option("--local-port", global.local_port,
                   "Send from this port, past any monitor (default: any; 1299 is the process's default peer)")
        ->check(CLI::Range(1, 65535));
    app.add_flag("--no-session", global.no_session,
                 "Don't take the session: the process must already report to --local-port. Nothing is confirmed then");
    app.add_option("--timeout,-w", global.timeout_ms, "How long to wait for answers, in ms (default 1000)")
        ->check(CLI::Range(1, 3600000))
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_flag("--json,-j", global.json, "Print JSON, one object per line");
    app.add_flag("--verbose,-v", global.verbose, "Show on standard error what else the process reports meanwhile");
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Commands the fxsmedia media process.", "fxsctl"};
    fxsctl::program program;
    app.footer(footer);
    app.require_subcommand(0, 1);  // checked below, so that an unknown word gets its own message
    add_shared_options(app, program.global);
    for (auto const add :
         {fxsctl::add_session, fxsctl::add_monitor, fxsctl::add_doctor, fxsctl::add_call, fxsctl::add_open,
          fxsctl::add_media, fxsctl::add_line, fxsctl::add_hold, fxsctl::add_tones, fxsctl::add_process,
          fxsctl::add_tunnel, fxsctl::add_device, fxsctl::add_decode, fxsctl::add_quality, fxsctl::add_resync})
        add(app, program);
    try {
        app.parse(argc, argv);
        if (!program.action)
            throw fxsctl::failure(fxsctl::exit_code::usage, "no command given; see fxsctl --help");
        program.action(program.global);
    } catch (CLI::ParseError const& error) {
        bool const asked_for_help = app.exit(error) == 0;
        return static_cast<int>(asked_for_help ? fxsctl::exit_code::ok : fxsctl::exit_code::usage);
    } catch (fxsctl::ended const& end) {
        return static_cast<int>(end.code());
    } catch (fxsctl::failure const& failed) {
        std::cerr << "fxsctl: " << failed.what() << std::endl;
        return static_cast<int>(failed.code());
    }
    return static_cast<int>(fxsctl::exit_code::ok);
}
