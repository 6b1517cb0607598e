#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

constexpr std::uint16_t reported_driver_command = 3;  ///< the only one whose result is reported

void run_reset_base(protocol::reset_base_command const& command, settings const& global) {
    connection link(global);
    if (command.command != reported_driver_command) {
        link.run(protocol::encode(command));
        return;
    }
    auto const result = link.request<protocol::driver_result>(
        protocol::encode(command), "the driver could not be reached (no line device opened)",
        [](protocol::driver_result const& candidate) { return candidate.command == reported_driver_command; });
    print(global, origin::report, protocol::describe(result));
    if (result.result < 0)
        throw failure(exit_code::refused, "the driver refused the command");
}

void run_loopback(settings const& global) {
    connection link(global);
    auto const result = link.request<protocol::loopback_result>(protocol::encode(protocol::loopback_test_command{}),
                                                                "the process did not report a result",
                                                                [](protocol::loopback_result const&) { return true; });
    print(global, origin::report, protocol::describe(result));
    if (!result.found)
        throw failure(exit_code::refused, "the pattern did not come back from line 0");
}

std::map<std::string, std::uint16_t> const led_patterns{
    {"off", 0}, {"even", 1}, {"five-flashes", 2}, {"three-flashes", 3}};

protocol::led_command led_from(std::string const& text) {
    auto const named = led_patterns.find(text);
    protocol::led_command command;
    if (named != led_patterns.end()) {
        command.pattern = named->second;
    } else if (!CLI::detail::lexical_cast(text, command.pattern)) {
        throw failure(exit_code::usage,
                      "pattern: \"" + text + "\" is none of off, even, five-flashes, three-flashes, 0 to 65535");
    }
    return command;
}

struct signal_options {
    std::vector<std::string> hex;
    std::vector<std::string> text;
};

protocol::signal_command signal_from(signal_options const& options) {
    protocol::signal_command command;
    for (std::string const& piece : options.hex)
        command.data.push_back(hex_value("data", piece));
    for (std::string const& piece : options.text)
        command.data.push_back(protocol::to_bytes(piece));
    if (command.data.empty())
        throw failure(exit_code::usage, "nothing to send: give data in hexadecimal or --text");
    return command;
}

}  // namespace

void add_device(CLI::App& app, program& p) {
    auto pattern = std::make_shared<std::string>();
    CLI::App* sub = add_command(app, p, "led", "Blink the call LED", [pattern](settings const& global) {
        protocol::led_command const command = led_from(*pattern);
        connection(global).run(protocol::encode(command));
    });
    sub->add_option("pattern", *pattern, "off, even, five-flashes, three-flashes or 0 to 3; other numbers stay dark")
        ->required();

    auto reset = std::make_shared<protocol::reset_base_command>();
    sub = add_command(app, p, "reset-base", "Pass a command to the line driver; for 3 its result is printed",
                      [reset](settings const& global) { run_reset_base(*reset, global); });
    sub->add_option("command", reset->command, "Driver command, 0 to 255")->required()->check(CLI::Range(0, 255));

    auto data = std::make_shared<signal_options>();
    sub = add_command(app, p, "signal", "Write bytes to the signalling device", [data](settings const& global) {
        protocol::signal_command const command = signal_from(*data);
        connection link(global);
        require_signalling(link);
        link.run(protocol::encode(command));
    });
    sub->add_option("data", data->hex, "Bytes in hexadecimal; each argument is one write");
    sub->add_option("--text", data->text, "Text to write as it is, after the bytes");

    add_command(app, p, "loopback-test", "Write a pattern to line 0 and wait for it to come back (blocks the process)",
                [](settings const& global) {
                    constexpr unsigned longest_test_ms = 5000;
                    settings patient = global;
                    patient.timeout_ms = std::max(global.timeout_ms, longest_test_ms);
                    run_loopback(patient);
                });
}

}  // namespace fxsctl
