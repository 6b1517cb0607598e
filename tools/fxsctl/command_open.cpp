#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/open_request.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

void check_range(protocol::open_command const& command) {
    constexpr int default_min = 49152;
    int const min = command.port_min.value_or(default_min);
    if (command.port_max && *command.port_max <= min)
        throw failure(exit_code::usage, "--port-max must be above --port-min (" + std::to_string(min) + ")");
}

}  // namespace

void add_open(CLI::App& app, program& p) {
    auto command = std::make_shared<protocol::open_command>();
    CLI::App* sub =
        add_command(app, p, "open", "Open a call: bind its RTP and RTCP ports and print them",
                    [command](settings const& global) {
                        check_range(*command);
                        connection link(global);
                        print(global, origin::report, protocol::describe(open_call(link, *command)));
                    });
    sub->add_option("--call,-c", command->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("--port-min", command->port_min, "Lowest RTP port (default 49152)")
        ->check(CLI::Range(1, 65534));
    sub->add_option("--port-max", command->port_max, "Ports below this one are tried (default 65536)")
        ->check(CLI::Range(2, 65535));
    sub->add_option("--tos", command->tos,
                    "IP type of service of the RTP sockets (default 160, 0: leave alone)")
        ->check(CLI::Range(0, 255));
    sub->add_option("--call-id", command->call_id,
                    "Call identifier; when there is one, copies of all RTCP packets are reported with it");
}

}  // namespace fxsctl
