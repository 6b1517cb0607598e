#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/fxsctl/call_ledger.h"
#include "tools/fxsctl/settings.h"
#include "tools/protocol/control_client.h"

namespace fxsctl {

/// One run's connection to the process: through a running monitor when there is one, otherwise by taking the session.
///
/// The protocol acknowledges few commands. A session command therefore follows each one in the same datagram; its empty
/// answer shows that the process has handled what stood before it.
class connection {
public:
    /// Throws `failure`: usage without a port, local when a socket cannot be had, no_answer when no answer comes.
    explicit connection(settings const& global);

    /// Sends the commands (whole ones, back to back) and waits until they were handled. Throws no_answer.
    void run(protocol::bytes commands);

    /// Sends that many session commands in one datagram. Returns whether that many answers came, the first in time, the
    /// others close behind it. Throws no_answer when none came.
    bool answers_each_of(int session_commands);

    /// Sends the commands and waits for the report of type T that `wanted` accepts. Throws no_answer when nothing
    /// comes, refused with `what` when the process answers but sends no such report.
    template <class T>
    T request(protocol::bytes commands, std::string const& what, std::function<bool(T const&)> const& wanted);

    /// What the monitor remembers of the calls. nullopt without a monitor.
    std::optional<call_ledger> ask_ledger();

    /// Waits until reports say that each of these calls has sent packets. `ever`: at any time; otherwise since this
    /// run looked first. Returns those that have not within `timeout`.
    std::vector<std::uint16_t> wait_for_audio(std::vector<std::uint16_t> calls, bool ever,
                                              std::chrono::milliseconds timeout);

    /// Whether a report of this call came; none does of a call without an identifier.
    bool is_reported(std::uint16_t call) const { return sent.contains(call); }

    bool through_monitor() const { return shared; }
    protocol::control_client& client() { return process; }
    settings const& global() const { return chosen; }

private:
    static constexpr std::chrono::milliseconds grace_after_heartbeat{300};

    void open_direct();
    void send(protocol::bytes commands);
    void remark(protocol::report const& message);  ///< prints what came besides the answer, notes packet counts
    [[noreturn]] void fail_without_answer() const;

    /// Waits for the empty answer. A heartbeat looks the same; one that comes in just this moment is taken for it.
    void wait_until_handled();

    /// Takes reports until `wanted` holds for one. A heartbeat shortens the wait: it may be the answer to the session
    /// command behind ours, and then the answer to ours must follow at once. `alive`: a heartbeat came.
    bool wait_for(std::function<bool(protocol::report const&)> const& wanted, bool& alive);

    settings chosen;
    bool shared = false;
    protocol::control_client process;
    struct packet_counts {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
    };
    std::map<std::uint16_t, packet_counts> sent;  ///< by call, of the sender reports that came
};

template <class T>
T connection::request(protocol::bytes commands, std::string const& what, std::function<bool(T const&)> const& wanted) {
    T answer;
    bool alive = false;
    send(std::move(commands));
    bool const found = wait_for(
        [&](protocol::report const& message) {
            T const* candidate = std::get_if<T>(&message);
            bool const fits = candidate != nullptr && wanted(*candidate);
            answer = fits ? *candidate : answer;
            return fits;
        },
        alive);
    if (!found && alive)
        throw failure(exit_code::refused, what);
    if (!found)
        fail_without_answer();
    wait_until_handled();  // so that this answer confirms no later command
    return answer;
}

/// Opens command.call (which must be set). Throws refused when the process could bind no ports.
protocol::open_reply open_call(connection& link, protocol::open_command const& command);

}  // namespace fxsctl
