#include "lib/sockets.h"

#include <cerrno>

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/log.h"

namespace {

constexpr int probe_port = 5060;  // any port will do: local_address_for() sends nothing

void log_endpoint(int level, char const* format, ip_port const& endpoint) {
    if (!log_check_condition(level))
        return;
    str const shown = utils::readable_ip(endpoint);
    log_line(level, format, arg_str(shown));
}

bool set_non_blocking(int fd) {
    int on = 1;
    return ioctl(fd, FIONBIO, &on) == 0;
}

/// Binds and makes non-blocking; the descriptor, or -1 after closing it.
int bind_udp_socket(int fd, sockaddr const* address, socklen_t length, int port, char const* failure) {
    if (bind(fd, address, length) != 0) {
        close(fd);
        log_line(0, failure, arg_int(port));
        return -1;
    }
    if (!set_non_blocking(fd)) {
        close(fd);
        log_line(0, "Could not set non blocking IO");
        return -1;
    }
    return fd;
}

int open_ipv4_socket(ip_port const& local) {
    int const fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (!utils::valid_socket(fd))
        return -1;
    sockaddr_in address;
    utils::conv4(local, address);
    return bind_udp_socket(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address, local.port,
                           "UDP: bind() to port %d failed");
}

int open_ipv6_socket(int port) {
    int const fd = socket(AF_INET6, SOCK_DGRAM, 0);
    if (!utils::valid_socket(fd))
        return -1;
    int const on = 1;
    setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    sockaddr_in6 address;
    utils::conv6(ip_port(str::null, port), address);
    return bind_udp_socket(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address, port,
                           "UDPv6: bind() to port %d failed");
}

}  // namespace

unsigned utils::socket_changes = 0;

int utils::open_udp_socket(int port, bool over_ipv6) {
    socket_changes++;
    return over_ipv6 ? open_ipv6_socket(port) : open_ipv4_socket(ip_port(str::null, port));
}

int utils::open_loopback_socket(int port) {
    socket_changes++;
    return open_ipv4_socket(ip_port(str(127, 0, 0, 1), port));
}

void utils::close_udp_socket(int fd) {
    socket_changes++;
    close(fd);
}

int utils::open_tcp_client(ip_port const& to) {
    socket_changes++;
    socket_address const address(to);
    if (!address.usable) {
        log_endpoint(0, "Could not set destination %s", to);
        return -1;
    }
    int const fd = socket(address.any.sa_family, SOCK_STREAM, 0);
    if (!valid_socket(fd)) {
        log_endpoint(0, "Could not open a socket for %s", to);
        return -1;
    }
    if (!set_non_blocking(fd)) {
        close(fd);
        log_line(0, "Could not set socket for non blocking IO");
        return -1;
    }
    if (connect(fd, &address.any, address.length) == 0 || errno == EINPROGRESS)
        return fd;
    close(fd);
    log_endpoint(3, "Could not connect to %s", to);
    return -1;
}

str utils::recv_tcp_packet(int fd) {
    ssize_t const n = recv(fd, receive_buffer, sizeof receive_buffer, 0);
    return n > 0 ? str(receive_buffer, static_cast<int>(n)) : str();
}

void utils::send_tcp_packet(int fd, str& data) {
    if (data.empty())
        return;
    ssize_t const n = send(fd, data.cbuffer(), static_cast<size_t>(data.length()), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n < 0) {
        log_line(8, "!!!!!!!!!!! TCP error code  %d", arg_int(errno));
        data.clear();
        return;
    }
    data = data.substr(static_cast<int>(n));
}

void utils::close_tcp_socket(int fd) {
    socket_changes++;
    close(fd);
}

str utils::local_address_for(str const& destination) {
    socket_address const to(ip_port(destination, probe_port));
    if (!to.usable)
        return str();
    int const fd = socket(to.any.sa_family, SOCK_DGRAM, 0);
    if (!valid_socket(fd))
        return str();
    str address;
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    if (connect(fd, &to.any, to.length) == 0 && getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) == 0) {
        if (local.ss_family == AF_INET6)
            address = str(reinterpret_cast<sockaddr_in6&>(local).sin6_addr.s6_addr, 16);
        else
            address = str(reinterpret_cast<unsigned char const*>(&reinterpret_cast<sockaddr_in&>(local).sin_addr), 4);
    }
    close(fd);
    return address;
}

bool utils::is_own_address(int fd, ip_port const& source) {
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) != 0 || ntohs(bound.sin_port) != source.port)
        return false;
    str const address(reinterpret_cast<unsigned char const*>(&bound.sin_addr), sizeof bound.sin_addr);
    bool const on_all_addresses = bound.sin_addr.s_addr == INADDR_ANY;
    return source.address == (on_all_addresses ? local_address_for(source.address) : address);
}
