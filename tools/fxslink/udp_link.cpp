#include "tools/fxslink/udp_link.h"

#include <sys/socket.h>

udp_link::udp_link(int port_a, int port_b, impairment::settings const& settings, std::uint32_t seed)
    : sides{side_state{bind_udp(port_a), impairment(settings, seed), {}},
            side_state{bind_udp(port_b), impairment(settings, seed + 1), {}}} {}

void udp_link::receive(int side, clock::time_point now) {
    constexpr std::size_t largest_datagram = 65536;
    side_state& from = sides[static_cast<std::size_t>(side)];
    octets data(largest_datagram);
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    ssize_t const n = recvfrom(from.socket.get(), data.data(), data.size(), MSG_DONTWAIT,
                               reinterpret_cast<sockaddr*>(&sender), &length);
    if (n < 0)
        return;
    data.resize(static_cast<std::size_t>(n));
    from.peer = sender;
    for (std::chrono::milliseconds const delay : from.network.next())
        queue.insert({now + delay, waiting{1 - side, data}});
}

std::optional<udp_link::clock::time_point> udp_link::send_due(clock::time_point now) {
    while (!queue.empty() && queue.begin()->first <= now) {
        waiting const due = queue.begin()->second;
        queue.erase(queue.begin());
        side_state const& to = sides[static_cast<std::size_t>(due.to_side)];
        if (to.peer)
            sendto(to.socket.get(), due.data.data(), due.data.size(), 0,
                   reinterpret_cast<sockaddr const*>(&*to.peer), sizeof *to.peer);
    }
    if (queue.empty())
        return std::nullopt;
    return queue.begin()->first;
}
