#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

void run_session(settings const& global) {
    connection link(global);
    auto const start = std::chrono::steady_clock::now();
    link.run({});  // only the session command that follows every other one
    auto const took = std::chrono::steady_clock::now() - start;
    print(global, origin::result,
          {"session",
           {{"process", global.process_address()},
            {"answered_us", std::chrono::duration_cast<std::chrono::microseconds>(took).count()},
            {"through_monitor", link.through_monitor()}}});
}

}  // namespace

void add_session(CLI::App& app, program& p) {
    add_command(app, p, "session", "Take the control session and wait for the answer: is the process alive?",
                run_session)
        ->alias("ping");
}

void add_process(CLI::App& app, program& p) {
    auto level = std::make_shared<protocol::log_level_command>();
    CLI::App* sub =
        add_command(app, p, "log-level", "Set which log lines the process sends (see them with `fxsctl monitor`)",
                    [level](settings const& global) { connection(global).run(protocol::encode(*level)); });
    sub->add_option("level", level->level,
                    "0 failures, 1 life events, 3 transport, 4 security, 5 media (shows SRTP keys!), 6 resources, "
                    "7 connections, 8 packets, 9 dumps; each with all below it")
        ->required()
        ->check(CLI::Range(0, 9));

    auto offset = std::make_shared<protocol::ntp_offset_command>();
    sub = add_command(app, p, "ntp-offset", "Correct the clock in RTCP by seconds",
                      [offset](settings const& global) { connection(global).run(protocol::encode(*offset)); });
    sub->add_option("seconds", offset->seconds, "Added to the system clock, may be negative")->required();

    add_command(app, p, "dump", "Have the process compose its channel dump (which it sends nowhere)",
                [](settings const& global) { connection(global).run(protocol::encode(protocol::dump_command{})); });
}

}  // namespace fxsctl
