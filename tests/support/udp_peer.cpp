#include "tests/support/udp_peer.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace {

constexpr std::string_view mark = "-- end of what was sent before --";
constexpr int patience_ms = 10000;

struct endpoint {
    sockaddr_storage storage{};
    socklen_t length;

    sockaddr* any() { return reinterpret_cast<sockaddr*>(&storage); }
    explicit endpoint(ip_port const& from) {
        std::string const address = to_string(from.address);
        if (address.size() == 16) {
            auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
            v6.sin6_family = AF_INET6;
            v6.sin6_port = htons(static_cast<std::uint16_t>(from.port));
            address.copy(reinterpret_cast<char*>(&v6.sin6_addr), 16);
            length = sizeof v6;
        } else {
            auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
            v4.sin_family = AF_INET;
            v4.sin_port = htons(static_cast<std::uint16_t>(from.port));
            address.copy(reinterpret_cast<char*>(&v4.sin_addr), 4);
            length = sizeof v4;
        }
    }
};

str loopback(bool ipv6) {
    return to_str(ipv6 ? from_hex("00000000000000000000000000000001") : from_hex("7F000001"));
}

}  // namespace

int bound_port(int fd) {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length), 0);
    return ntohs(storage.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(storage).sin6_port
                                               : reinterpret_cast<sockaddr_in&>(storage).sin_port);
}

udp_peer::udp_peer(bool over_ipv6)
    : socket_fd(socket(over_ipv6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), ipv6(over_ipv6) {
    int const room = 4 << 20;
    setsockopt(socket_fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    endpoint local(ip_port(loopback(ipv6), 0));
    EXPECT_EQ(bind(socket_fd, local.any(), local.length), 0) << "the tests need the loopback, IPv6 too";
}

udp_peer::~udp_peer() {
    close(socket_fd);
}

ip_port udp_peer::address() const {
    return ip_port(loopback(ipv6), bound_port(socket_fd));
}

void udp_peer::send(ip_port const& to, std::string_view datagram) const {
    endpoint there(to);
    EXPECT_EQ(sendto(socket_fd, datagram.data(), datagram.size(), 0, there.any(), there.length),
              static_cast<ssize_t>(datagram.size()));
}

std::vector<std::string> udp_peer::received(int sender_fd) {
    endpoint here(address());
    EXPECT_EQ(sendto(sender_fd, mark.data(), mark.size(), 0, here.any(), here.length),
              static_cast<ssize_t>(mark.size()));
    std::vector<std::string> datagrams;
    std::string buffer(65536, 0);
    for (;;) {
        pollfd readable{socket_fd, POLLIN, 0};
        if (poll(&readable, 1, patience_ms) != 1) {
            ADD_FAILURE() << "the mark got lost";
            return datagrams;
        }
        ssize_t const n = recv(socket_fd, buffer.data(), buffer.size(), 0);
        std::string datagram = buffer.substr(0, n < 0 ? 0 : static_cast<std::size_t>(n));
        if (datagram == mark)
            return datagrams;
        datagrams.push_back(std::move(datagram));
    }
}
