#pragma once

#include <netinet/in.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "lib/sockets.h"
#include "tests/support/bytes.h"
#include "tests/support/loopback.h"

/// The loopback address of a bound socket.
inline ip_port loopback_address(int fd, bool over_ipv6) {
    return ip_port(over_ipv6 ? str('\0', 15) + str('\1', 1) : str(127, 0, 0, 1), bound_port(fd));
}

/// A far end on the loopback: one bound UDP socket of a test.
class udp_peer {
public:
    explicit udp_peer(bool over_ipv6 = false)
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
    ~udp_peer() { close(socket_fd); }
    udp_peer(udp_peer const&) = delete;
    udp_peer& operator=(udp_peer const&) = delete;

    ip_port address() const { return loopback_address(socket_fd, ipv6); }
    int fd() const { return socket_fd; }

    void send(ip_port const& to, std::string_view datagram) const {
        EXPECT_EQ(utils::send_udp_packet(socket_fd, to, to_str(datagram)), static_cast<int>(datagram.size()));
    }

    /// All datagrams that socket `sender_fd` has sent here so far: a mark is sent through that socket behind them,
    /// and what comes before it is returned. Waits for the mark, never for a time.
    std::vector<std::string> received(int sender_fd) {
        constexpr std::string_view mark = "-- end of what was sent before --";
        utils::send_udp_packet(sender_fd, address(), to_str(mark));
        std::string buffer(65536, 0);
        for (std::vector<std::string> datagrams; shows(socket_fd, POLLIN);) {
            ssize_t const n = recv(socket_fd, buffer.data(), buffer.size(), 0);
            datagrams.push_back(buffer.substr(0, static_cast<std::size_t>(n)));
            if (datagrams.back() == mark) {
                datagrams.pop_back();
                return datagrams;
            }
        }
        ADD_FAILURE() << "the mark got lost";
        return {};
    }

private:
    int socket_fd;
    bool ipv6;
};
