#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/settings.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

struct decode_options {
    std::vector<std::string> hex;
    bool command = false;
};

/// Both return whether everything was understood.
bool decode_commands(protocol::byte_view datagram, settings const& global) {
    bool sound = true;
    for (protocol::description const& message : protocol::describe_commands(datagram)) {
        print(global, origin::command, message);
        sound = sound && message.name != "undecodable";
    }
    return sound;
}

bool decode_reports(protocol::byte_view datagram, settings const& global) {
    bool sound = true;
    for (protocol::report const& message : protocol::parse_reports(datagram)) {
        if (auto const* copy = std::get_if<protocol::rtcp_copy>(&message))
            print_rtcp(global, *copy, rtcp_reader().read(*copy), false);
        else
            print(global, origin::report, protocol::describe(message));
        sound = sound && !std::holds_alternative<protocol::undecodable>(message);
    }
    return sound;
}

void run_decode(decode_options const& options, settings const& global) {
    std::string text;
    for (std::string const& piece : options.hex)
        text += piece + " ";
    protocol::bytes const datagram = hex_value("hex", text);
    bool const sound = options.command ? decode_commands(datagram, global) : decode_reports(datagram, global);
    if (!sound)
        throw failure(exit_code::refused, "not everything could be decoded");
}

}  // namespace

void add_decode(CLI::App& app, program& p) {
    auto options = std::make_shared<decode_options>();
    CLI::App* sub = add_command(app, p, "decode", "Explain a captured datagram; needs no process",
                                [options](settings const& global) { run_decode(*options, global); });
    sub->add_option("hex", options->hex, "The datagram in hexadecimal")->required();
    sub->add_flag("--command", options->command, "It went to the process (default: it came from there)");
}

}  // namespace fxsctl
