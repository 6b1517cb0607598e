#include "tests/support/udp_peer.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/sockets.h"
#include "tests/support/bytes.h"

namespace {

constexpr std::string_view mark = "-- end of what was sent before --";
constexpr int patience_ms = 10000;

}  // namespace

int bound_port(int fd) {
    sockaddr_in6 bound{};  // both families have the port in the same place
    socklen_t length = sizeof bound;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length), 0);
    return ntohs(bound.sin6_port);
}

udp_peer::udp_peer(bool over_ipv6)
    : socket_fd(socket(over_ipv6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), ipv6(over_ipv6) {
    int const room = 4 << 20;
    setsockopt(socket_fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    sockaddr_in v4{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    sockaddr_in6 v6{AF_INET6, 0, 0, in6addr_loopback, 0};
    EXPECT_EQ(ipv6 ? bind(socket_fd, reinterpret_cast<sockaddr*>(&v6), sizeof v6)
                   : bind(socket_fd, reinterpret_cast<sockaddr*>(&v4), sizeof v4),
              0)
        << "the tests need the loopback, IPv6 too";
}

udp_peer::~udp_peer() {
    close(socket_fd);
}

ip_port udp_peer::address() const {
    return ip_port(to_str(ipv6 ? from_hex("00000000000000000000000000000001") : from_hex("7F000001")),
                   bound_port(socket_fd));
}

void udp_peer::send(ip_port const& to, std::string_view datagram) const {
    EXPECT_EQ(utils::send_udp_packet(socket_fd, to, to_str(datagram)), static_cast<int>(datagram.size()));
}

std::vector<std::string> udp_peer::received(int sender_fd) {
    utils::send_udp_packet(sender_fd, address(), to_str(mark));
    std::vector<std::string> datagrams;
    std::string buffer(65536, 0);
    for (;;) {
        pollfd readable{socket_fd, POLLIN, 0};
        if (poll(&readable, 1, patience_ms) != 1) {
            ADD_FAILURE() << "the mark got lost";
            return datagrams;
        }
        ssize_t const n = recv(socket_fd, buffer.data(), buffer.size(), 0);
        datagrams.push_back(buffer.substr(0, static_cast<std::size_t>(n)));
        if (datagrams.back() == mark) {
            datagrams.pop_back();
            return datagrams;
        }
    }
}
