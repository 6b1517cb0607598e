#include <sys/times.h>
#include <unistd.h>

#include <cmath>

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

/// The tick clock of this machine, as the process reads it: hundredths of a second in 32 bits.
std::int32_t offset_to_time_of_day() {
    tms ignored{};
    auto const ticks = static_cast<std::uint32_t>(times(&ignored));
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    double const unix_s = std::chrono::duration<double>(now).count();
    return static_cast<std::int32_t>(std::lround(unix_s - ticks / static_cast<double>(sysconf(_SC_CLK_TCK))));
}

protocol::ntp_offset_command offset_from(std::string const& text, settings const& global) {
    if (text == "auto" && !global.host.starts_with("127."))
        throw failure(exit_code::usage, "seconds: auto works on the machine of the process only");
    if (text == "auto")
        return {offset_to_time_of_day()};
    protocol::ntp_offset_command command;
    if (!CLI::detail::lexical_cast(text, command.seconds))
        throw failure(exit_code::usage, "seconds: \"" + text + "\" is neither a number nor auto");
    return command;
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

    auto offset = std::make_shared<std::string>();
    sub = add_command(app, p, "ntp-offset", "Set the clock in RTCP", [offset](settings const& global) {
        protocol::ntp_offset_command const command = offset_from(*offset, global);
        connection(global).run(protocol::encode(command));
    });
    sub->add_option(
           "seconds", *offset,
           "Added to the tick clock (times(2)), which counts from about the machine's start; auto: so that RTCP "
           "shows the time of day")
        ->required();

    add_command(app, p, "dump", "Have the process compose its channel dump (which it sends nowhere)",
                [](settings const& global) { connection(global).run(protocol::encode(protocol::dump_command{})); });
}

}  // namespace fxsctl
