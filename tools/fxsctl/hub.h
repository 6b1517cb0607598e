#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "tools/fxsctl/hub_history.h"
#include "tools/fxsctl/settings.h"
#include "tools/protocol/control_client.h"

namespace fxsctl {

/// What makes a monitor shareable: passes datagrams between the one control session of the process and its clients.
///
/// Clients are further runs of fxsctl (over the hub endpoint) and, with a relay, one UDP peer: a call control that uses
/// the relay's port instead of the process's. The process gets the commands of all; every client gets every report.
///
/// It remembers what set up the calls that are there, and tells it to a client that asks (hub_history.h).
class hub {
public:
    struct datagram {
        bool command = false;  ///< went to the process; otherwise came from it
        protocol::bytes data;
    };

    /// `session` must outlive the hub.
    explicit hub(protocol::control_client& session) : process(session) {}
    hub(hub const&) = delete;
    ~hub();

    /// Starts to accept other runs of fxsctl. false (errno set): another monitor holds the name.
    bool listen(settings const& global);

    /// Stands in for the process on 127.0.0.1:port. Reports go to `peer_port` of 127.0.0.1 until a first
    /// command arrives, then to its sender. false (errno set) when the port cannot be bound.
    bool relay(std::uint16_t port, std::uint16_t peer_port);

    /// Waits at most `timeout` for traffic and passes on what there is. Returns it, in the order it was passed on.
    std::vector<datagram> pass_on(std::chrono::milliseconds timeout);

private:
    void accept_clients();
    void take_from_process(std::vector<datagram>& passed);
    bool take_from_client(int fd, std::vector<datagram>& passed);  ///< false: it is gone
    void take_from_relay(std::vector<datagram>& passed);
    void forward(protocol::byte_view data, std::vector<datagram>& passed);
    void remember(bool command, protocol::byte_view messages);
    void tell_history(int fd) const;

    protocol::control_client& process;
    int listening_fd = -1;
    int relay_fd = -1;
    sockaddr_in relay_peer{};
    std::vector<int> client_fds;
    std::deque<past_message> history;
};

}  // namespace fxsctl
