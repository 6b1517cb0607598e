// fxsctl: commands the media process and shows what it reports, in place of call control or beside it.

#include <iostream>

#include "tools/fxsctl/complaint.h"
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

/// Help and version are asked for by exceptions, too.
int explain(CLI::App const& app, CLI::ParseError const& error, int argc, char** argv) {
    using fxsctl::exit_code;
    if (error.get_exit_code() == 0) {
        app.exit(error);
        return static_cast<int>(exit_code::ok);
    }
    std::string const meant = fxsctl::suggestion(app, argc, argv);
    std::string const hint = meant.empty() ? "" : "; did you mean `fxsctl " + meant + "`?";
    if (fxsctl::wants_json(argc, argv)) {
        fxsctl::complain(true, exit_code::usage, error.what() + hint);
    } else {
        app.exit(error);
        if (!hint.empty())
            std::cerr << "fxsctl: did you mean `fxsctl " << meant << "`?" << std::endl;
    }
    return static_cast<int>(exit_code::usage);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Commands the fxsmedia media process.", "fxsctl"};
    fxsctl::program program;
    app.footer(footer);
    app.set_version_flag("--version",
                         "fxsctl " FXSMEDIA_VERSION "\nfxsmedia --version says 3159: the number of its interface");
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
        return explain(app, error, argc, argv);
    } catch (fxsctl::ended const& end) {
        return static_cast<int>(end.code());
    } catch (fxsctl::failure const& failed) {
        fxsctl::complain(program.global.json, failed.code(), failed.what());
        return static_cast<int>(failed.code());
    }
    return static_cast<int>(fxsctl::exit_code::ok);
}
