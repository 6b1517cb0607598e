#pragma once

#include <array>
#include <map>
#include <optional>

#include "tools/fxslink/impairment.h"
#include "tools/fxslink/relay_socket.h"

/// Two UDP ports with a bad network between them: what arrives at one leaves from the other, to whoever sent there
/// last. Nothing passes to a side before it has sent something.
class udp_link {
public:
    using clock = std::chrono::steady_clock;

    udp_link(int port_a, int port_b, impairment::settings const& settings, std::uint32_t seed);

    int fd(int side) const { return sides[static_cast<std::size_t>(side)].socket.get(); }
    /// Takes one datagram off a side's socket.
    void receive(int side, clock::time_point now);
    /// Sends what is due and says when the next packet will be; nothing waits: no time.
    std::optional<clock::time_point> send_due(clock::time_point now);
    /// What was offered by a side, and what became of it.
    impairment::counters const& count(int side) const {
        return sides[static_cast<std::size_t>(side)].network.count();
    }

private:
    struct side_state {
        descriptor socket;
        impairment network;  ///< of what this side sends
        std::optional<sockaddr_in> peer;
    };
    struct waiting {
        int to_side;
        octets data;
    };

    std::array<side_state, 2> sides;
    std::multimap<clock::time_point, waiting> queue;
};
