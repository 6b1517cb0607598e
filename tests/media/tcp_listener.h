#pragma once

#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/address.h"
#include "tests/support/bytes.h"
#include "tests/support/udp_peer.h"

/// One accepted connection of a far end; closed with it.
class tcp_stream {
public:
    explicit tcp_stream(int accepted_fd) : fd(accepted_fd) {}
    tcp_stream(tcp_stream&&) = delete;
    ~tcp_stream() { hang_up(); }

    void send(std::string_view bytes) const {
        EXPECT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    /// Exactly n bytes; waits for them.
    std::string read(std::size_t n) const {
        std::string bytes(n, 0);
        timeval const patience{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(recv(fd, bytes.data(), n, MSG_WAITALL), static_cast<ssize_t>(n));
        return bytes;
    }
    /// Whether nothing more has come and the other side has not closed.
    bool quiet() const {
        char c;
        return recv(fd, &c, 1, MSG_PEEK | MSG_DONTWAIT) < 0;
    }
    bool closed_by_peer() const {
        pollfd readable{fd, POLLIN, 0};
        char c;
        return poll(&readable, 1, 10000) == 1 && recv(fd, &c, 1, MSG_PEEK) <= 0;
    }
    void hang_up() {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

private:
    int fd;
};

/// A far end that waits for connections on a loopback port.
class tcp_listener {
public:
    explicit tcp_listener(bool over_ipv6 = false)
        : ipv6(over_ipv6), fd(socket(over_ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_addr = in6addr_loopback;
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(ipv6 ? bind(fd, reinterpret_cast<sockaddr*>(&v6), sizeof v6)
                       : bind(fd, reinterpret_cast<sockaddr*>(&v4), sizeof v4),
                  0);
        EXPECT_EQ(listen(fd, 8), 0);
    }
    ~tcp_listener() { close(fd); }
    tcp_listener(tcp_listener const&) = delete;
    tcp_listener& operator=(tcp_listener const&) = delete;

    ip_port address() const {
        return ip_port(to_str(from_hex(ipv6 ? "00000000000000000000000000000001" : "7F000001")),
                       bound_port(fd));
    }
    /// The next connection; waits for it.
    tcp_stream accept() const {
        EXPECT_TRUE(connection_waits(10000));
        return tcp_stream(::accept(fd, nullptr, nullptr));
    }
    bool connection_waits(int patience_ms = 0) const {
        pollfd readable{fd, POLLIN, 0};
        return poll(&readable, 1, patience_ms) == 1;
    }

private:
    bool ipv6;
    int fd;
};
