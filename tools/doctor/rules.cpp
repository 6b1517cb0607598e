#include "tools/doctor/rules.h"

#include <algorithm>

#include "tools/doctor/call_rules.h"

namespace doctor {
namespace {

std::string control_command(observation const& seen, std::string const& command) {
    std::string const& address = seen.process.address;
    return "fxsctl --port " + address.substr(address.rfind(':') + 1) + " " + command;
}

std::vector<cause> silence_of_process(observation const& seen) {
    process_facts const& p = seen.process;
    std::string const name = p.program.empty() ? p.address : p.program;
    if (p.state == 'T')
        return {{"process-stopped", certainty::certain, name + " was stopped by a signal", "kill -CONT the process"}};
    if (p.unread_commands != 0)
        return {{"process-busy", certainty::likely,
                 std::to_string(p.unread_commands) + " bytes wait in the control socket of " + name +
                     ", which does not read them",
                 "wait for the end of a loopback test, else restart the process"}};
    return {{"reassembly-poisoned", p.program.empty() ? certainty::likely : certainty::certain,
             name + " reads its control socket and answers nothing: it waits for the rest of a broken command",
             control_command(seen, "resync")}};
}

std::vector<cause> process_causes(observation const& seen) {
    process_facts const& p = seen.process;
    std::vector<cause> causes;
    if (!p.listens)
        causes.push_back({"no-process", certainty::certain, "nothing listens on " + p.address, "start fxsmedia"});
    else if (!p.answers)
        causes = silence_of_process(seen);
    for (int const pid : p.locked_out)
        causes.push_back({"second-process", certainty::certain,
                          "process " + std::to_string(pid) + " was started with the control port of " + p.address +
                              ", which was taken: it lives without a control socket",
                          "kill " + std::to_string(pid) + ", or start it with another --port"});
    if (p.session_lost)
        causes.push_back({"session-taken", certainty::certain,
                          "the monitor got no heartbeats until the session was taken back just now: another program "
                          "has sent a session command",
                          "let it use the monitor, or end it; `fxsctl monitor --relay` shares the session"});
    return causes;
}

}  // namespace

std::vector<verdict> examine(observation const& seen) {
    std::vector<verdict> verdicts;
    if (std::vector<cause> causes = process_causes(seen); !causes.empty())
        verdicts.push_back({.direction = "control", .state = condition::no_audio, .causes = std::move(causes)});
    for (call_facts const& call : seen.calls) {
        verdicts.push_back(examine_received(seen, call));
        verdicts.push_back(examine_sent(seen, call));
    }
    for (verdict& one : verdicts)
        std::ranges::stable_sort(one.causes, {}, &cause::sure);
    return verdicts;
}

bool is_healthy(std::vector<verdict> const& verdicts) {
    return std::ranges::all_of(verdicts, [](verdict const& one) { return one.causes.empty(); });
}

}  // namespace doctor
