// One run's way to the process: through a running monitor when there is one, otherwise by taking over the session.
//
// The protocol acknowledges few commands. So each command travels with a session command behind it in the same
// datagram; the empty answer to that one shows that the command was reached and handled.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/fxsctl/failure.h"
#include "tools/fxsctl/settings.h"
#include "tools/protocol/control_client.h"

namespace fxsctl {

class connection {
public:
    // Throws `failure`: usage without a port, local when a socket cannot be had, no_answer when nobody answers.
    explicit connection(settings const& global);

    // Sends the commands (whole ones, back to back) and waits until they were handled. Throws no_answer.
    void run(protocol::bytes commands);

    // Sends the commands and waits for the report of type T that `wanted` accepts. Throws no_answer when nothing comes,
    // refused with `what` when the process answers but sends no such report.
    template <class T>
    T request(protocol::bytes commands, std::string const& what, std::function<bool(T const&)> const& wanted);

    bool through_monitor() const { return shared; }
    protocol::control_client& client() { return process; }
    settings const& global() const { return chosen; }

private:
    static constexpr std::chrono::milliseconds grace_after_heartbeat{300};

    void open_direct();
    void send(protocol::bytes commands);
    void remark(protocol::report const& message) const;  // tells the user what came besides the answer
    [[noreturn]] void fail_without_answer() const;

    // Waits for the empty answer. A heartbeat looks the same; one that comes in just this moment is taken for it.
    void wait_until_handled();

    // Takes reports until `wanted` holds for one. A heartbeat shortens the wait: it may be the answer to the session
    // command behind ours, then ours is already handled and its own answer must be close.
    bool wait_for(std::function<bool(protocol::report const&)> const& wanted, bool& alive);

    settings chosen;
    bool shared = false;
    protocol::control_client process;
};

template <class T>
T connection::request(protocol::bytes commands, std::string const& what,
                      std::function<bool(T const&)> const& wanted) {
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
    wait_until_handled();  // takes the answer to our session command too, so that it confirms nothing later
    return answer;
}

}  // namespace fxsctl
