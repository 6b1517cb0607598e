#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <stdexcept>

/// Sockets of this machine alone, with nothing of the process under test.

/// Whether a descriptor shows an event of poll() within ten seconds.
inline bool shows(int fd, short event, int patience_ms = 10000) {
    pollfd wanted{fd, event, 0};
    return poll(&wanted, 1, patience_ms) == 1;
}

inline sockaddr_in loopback(int port) {
    return {AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
}

/// The port that a socket of either family is bound to.
inline std::uint16_t bound_port(int fd) {
    sockaddr_in6 bound{};  // both families have the port in the same place
    socklen_t length = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
    return ntohs(bound.sin6_port);
}

/// A UDP socket on a port of 127.0.0.1; 0: on a free one.
inline int bound_udp_socket(int port = 0, int flags = 0) {
    int const fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | flags, 0);
    sockaddr_in const here = loopback(port);
    if (bind(fd, reinterpret_cast<sockaddr const*>(&here), sizeof here) != 0)
        throw std::runtime_error("a port of the loopback is not free");
    return fd;
}

inline void send_to_port(int fd, int port, void const* data, std::size_t size) {
    sockaddr_in const to = loopback(port);
    sendto(fd, data, size, 0, reinterpret_cast<sockaddr const*>(&to), sizeof to);
}
