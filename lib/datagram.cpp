#include "lib/datagram.h"

#include <cstdint>
#include <cstring>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "lib/protocol.h"

#ifndef SIOCGSTAMP_OLD
#define SIOCGSTAMP_OLD SIOCGSTAMP  // its name before Linux 5.1
#endif

int command_fd = -1;
ip_port control_adr(str(127, 0, 0, 1), protocol::default_peer_port);

int send_command(str const& message) {
    return utils::send_udp_packet(command_fd, control_adr, message);
}

unsigned char utils::receive_buffer[65536];

namespace {

rtimestamp time_of_day(timeval const& day) {
    return rtimestamp(day.tv_sec * 1000000000LL + day.tv_usec * 1000LL);
}

/// One datagram into the shared buffer; its length when a sender of the wanted family came with it, else 0.
template <typename family_address>
int receive_from(int fd, family_address& sender) {
    socklen_t length = sizeof sender;
    ssize_t const n = recvfrom(fd, utils::receive_buffer, sizeof utils::receive_buffer, MSG_DONTWAIT,
                               reinterpret_cast<sockaddr*>(&sender), &length);
    return n > 0 && length == sizeof sender ? static_cast<int>(n) : 0;
}

}  // namespace

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
    return rtimestamp(static_cast<long long>(words[0]) * 1000000000LL + static_cast<long long>(words[1]) * 1000LL);
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
