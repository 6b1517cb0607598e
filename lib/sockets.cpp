#include "lib/sockets.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "lib/log_line.h"

#ifndef SIOCGSTAMP_OLD
#define SIOCGSTAMP_OLD SIOCGSTAMP  // its name before Linux 5.1
#endif

namespace {

constexpr int receive_buffer_bytes = 65536;  // no datagram is larger
unsigned char receive_buffer[receive_buffer_bytes];

constexpr int probe_port = 5060;  // any port will do: local_address_for() sends nothing

/// A socket address of either family.
struct socket_address {
    union {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    };
    socklen_t length;

    explicit socket_address(ip_port const& endpoint) {
        if (utils::ipv6(endpoint.address)) {
            usable = utils::conv6(endpoint, v6);
            length = sizeof v6;
        } else {
            usable = utils::conv4(endpoint, v4);
            length = sizeof v4;
        }
    }

    bool usable;
};

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

rtimestamp time_of_day(timeval const& day) {
    return rtimestamp(day.tv_sec * 1000000000LL + day.tv_usec * 1000LL);
}

/// One datagram into the shared buffer; its length when a sender of the wanted family came with it, else 0.
template <typename family_address>
int receive_from(int fd, family_address& sender) {
    socklen_t length = sizeof sender;
    ssize_t const n = recvfrom(fd, receive_buffer, receive_buffer_bytes, MSG_DONTWAIT,
                               reinterpret_cast<sockaddr*>(&sender), &length);
    return n > 0 && length == sizeof sender ? static_cast<int>(n) : 0;
}

}  // namespace

int utils::open_udp_socket(int port, bool over_ipv6) {
    return over_ipv6 ? open_ipv6_socket(port) : open_ipv4_socket(ip_port(str::null, port));
}

int utils::open_loopback_socket(int port) {
    return open_ipv4_socket(ip_port(str(127, 0, 0, 1), port));
}

void utils::close_udp_socket(int fd) {
    close(fd);
}

int utils::send_udp_packet(int fd, ip_port const& to, str const& data) {
    socket_address const address(to);
    if (!address.usable)
        return -1;
    return static_cast<int>(
        sendto(fd, data.cbuffer(), static_cast<size_t>(data.length()), 0, &address.any, address.length));
}

str utils::recv_udp_packet4(int fd, ip_port& from) {
    sockaddr_in sender{};
    int const n = receive_from(fd, sender);
    if (n == 0)
        return str();
    from.address = str(reinterpret_cast<unsigned char const*>(&sender.sin_addr), sizeof sender.sin_addr);
    from.port = ntohs(sender.sin_port);
    return str(receive_buffer, n);
}

str utils::recv_udp_packet6(int fd, ip_port& from) {
    sockaddr_in6 sender{};
    int const n = receive_from(fd, sender);
    if (n == 0)
        return str();
    from.address = str(reinterpret_cast<unsigned char const*>(&sender.sin6_addr), sizeof sender.sin6_addr);
    from.port = ntohs(sender.sin6_port);
    return str(receive_buffer, n);
}

rtimestamp utils::receive_stamp(int fd) {
    // The request that every kernel knows. It gives seconds and microseconds as two words of 32 bits (good until 2106),
    // or of 64 from a 64-bit kernel and from one built without 32-bit times.
    constexpr std::uint64_t untouched = UINT64_MAX;  // no number of microseconds
    alignas(16) std::uint64_t words[2] = {untouched, untouched};
    if (ioctl(fd, SIOCGSTAMP_OLD, words) != 0)
        return rtimestamp();
    if (words[1] == untouched) {
        std::uint32_t narrow[2];
        memcpy(narrow, words, sizeof narrow);
        words[0] = narrow[0];
        words[1] = narrow[1];
    }
    return rtimestamp(static_cast<long long>(words[0]) * 1000000000LL +
                      static_cast<long long>(words[1]) * 1000LL);
}

rtimestamp utils::on_process_clock(rtimestamp const& stamp) {
    rtimestamp const now = rtimestamp::now();
    timeval day{};
    gettimeofday(&day, nullptr);
    long long const age = time_of_day(day).diff_ticks(stamp);
    if (stamp == rtimestamp() || age < 0)
        return now;
    return rtimestamp(now.diff_ticks(rtimestamp(age)));
}

int utils::open_tcp_client(ip_port const& to) {
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
    ssize_t const n = recv(fd, receive_buffer, receive_buffer_bytes, 0);
    return n > 0 ? str(receive_buffer, static_cast<int>(n)) : str();
}

void utils::send_tcp_packet(int fd, str& data) {
    if (data.empty())
        return;
    ssize_t const n =
        send(fd, data.cbuffer(), static_cast<size_t>(data.length()), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n < 0) {
        log_line(8, "!!!!!!!!!!! TCP error code  %d", arg_int(errno));
        data.clear();
        return;
    }
    data = data.substr(static_cast<int>(n));
}

void utils::close_tcp_socket(int fd) {
    close(fd);
}

str utils::local_address_for(str const& destination) {
    socket_address const to(ip_port(destination, probe_port));
    int const fd = socket(to.any.sa_family, SOCK_DGRAM, 0);
    if (!valid_socket(fd))
        return str();
    str address;
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    if (connect(fd, &to.any, to.length) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) == 0) {
        if (local.ss_family == AF_INET6)
            address = str(reinterpret_cast<sockaddr_in6&>(local).sin6_addr.s6_addr, 16);
        else
            address = str(
                reinterpret_cast<unsigned char const*>(&reinterpret_cast<sockaddr_in&>(local).sin_addr), 4);
    }
    close(fd);
    return address;
}
