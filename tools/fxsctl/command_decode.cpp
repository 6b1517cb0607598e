#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/failure.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

struct decode_options {
    std::vector<std::string> hex;
    bool command = false;
};

void run_decode(const decode_options& options, const settings& global) {
    std::string text;
    for (const std::string& piece : options.hex) {
        text += piece + " ";
    }
    const protocol::bytes datagram = hex_value("hex", text);
    std::vector<protocol::description> messages;
    if (options.command) {
        messages = protocol::describe_commands(datagram);
    } else {
        for (const protocol::report& message : protocol::parse_reports(datagram)) {
            messages.push_back(protocol::describe(message));
        }
    }
    bool sound = true;
    for (const protocol::description& message : messages) {
        print(global, options.command ? origin::command : origin::report, message);
        sound = sound && message.name != "undecodable";
    }
    if (!sound) {
        throw failure(exit_code::refused, "not everything could be decoded");
    }
}

}  // namespace

void add_decode(CLI::App& app, program& p) {
    auto options = std::make_shared<decode_options>();
    CLI::App* sub = add_command(app, p, "decode", "Explain a captured datagram; needs no process",
                                [options](const settings& global) { run_decode(*options, global); });
    sub->add_option("hex", options->hex, "The datagram in hexadecimal")->required();
    sub->add_flag("--command", options->command, "It went to the process (default: it came from there)");
}

}  // namespace fxsctl
