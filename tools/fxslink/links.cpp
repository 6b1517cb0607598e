#include "tools/fxslink/links.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

descriptor& descriptor::operator=(descriptor&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
}

descriptor::~descriptor() {
    if (open())
        close(fd);
}

int descriptor::release() {
    return std::exchange(fd, -1);
}

namespace {

descriptor bind_loopback(int type, int port) {
    descriptor made(socket(AF_INET, type, 0));
    int const on = 1;
    if (type == SOCK_STREAM)
        setsockopt(made.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!made.open() || bind(made.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("port " + std::to_string(port) + ": " + std::strerror(errno));
    return made;
}

}  // namespace

descriptor bind_udp(int port) {
    return bind_loopback(SOCK_DGRAM, port);
}

descriptor listen_tcp(int port) {
    descriptor listening = bind_loopback(SOCK_STREAM, port);
    if (listen(listening.get(), 1) != 0)
        throw std::runtime_error("port " + std::to_string(port) + ": " + std::strerror(errno));
    return listening;
}

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
            sendto(to.socket.get(), due.data.data(), due.data.size(), 0, reinterpret_cast<sockaddr const*>(&*to.peer),
                   sizeof *to.peer);
    }
    if (queue.empty())
        return std::nullopt;
    return queue.begin()->first;
}

tcp_link::tcp_link(int port_a, int port_b)
    : sides{side_state{listen_tcp(port_a), descriptor(), 0}, side_state{listen_tcp(port_b), descriptor(), 0}} {}

void tcp_link::accept_client(int side) {
    side_state& at = sides[static_cast<std::size_t>(side)];
    at.client = descriptor(accept(at.listening.get(), nullptr, nullptr));
}

void tcp_link::receive(int side) {
    constexpr std::size_t piece = 65536;
    side_state& from = sides[static_cast<std::size_t>(side)];
    octets data(piece);
    ssize_t const n = recv(from.client.get(), data.data(), data.size(), 0);
    if (n <= 0) {
        from.client = descriptor();
        return;
    }
    from.bytes += static_cast<unsigned long>(n);
    int const to = client_fd(1 - side);
    if (to >= 0)
        send(to, data.data(), static_cast<std::size_t>(n), MSG_NOSIGNAL);
}
