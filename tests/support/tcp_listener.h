#pragma once

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
    /// All that is there; waits for something.
    std::string read_some() const {
        std::string bytes(shows(fd, POLLIN) ? 65536 : 0, 0);
        ssize_t const n = recv(fd, bytes.data(), bytes.size(), 0);
        EXPECT_GT(n, 0);
        return bytes.substr(0, static_cast<std::size_t>(n));
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
    bool quiet() const { return !shows(fd, POLLIN, 0); }
    bool closed_by_peer() const {
        char c;
        return shows(fd, POLLIN) && recv(fd, &c, 1, MSG_PEEK) <= 0;
    }
    void hang_up() {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
    void reset() {
        linger const at_once{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        hang_up();
    }

private:
    int fd;
};

/// A far end that waits for connections on a loopback port; with a receive buffer of so many bytes.
class tcp_listener {
public:
    explicit tcp_listener(bool over_ipv6 = false, int buffer = 1 << 16)
        : ipv6(over_ipv6), fd(socket(over_ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);  // accepted sockets inherit it
        EXPECT_EQ(listen(fd, 8), 0);                                    // binds to a free port
    }
    ~tcp_listener() { close(fd); }
    tcp_listener(tcp_listener const&) = delete;
    tcp_listener& operator=(tcp_listener const&) = delete;

    ip_port address() const { return loopback_address(fd, ipv6); }
    /// The next connection; waits for it.
    tcp_stream accept() const {
        EXPECT_TRUE(shows(fd, POLLIN));
        return tcp_stream(::accept(fd, nullptr, nullptr));
    }
    bool connection_waits() const { return shows(fd, POLLIN, 0); }

private:
    bool ipv6;
    int fd;
};
