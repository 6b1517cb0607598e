#include "lib/datagram.h"

#include <cstdint>
#include <cstring>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include "lib/protocol.h"

#ifndef SIOCGSTAMP_OLD
#define SIOCGSTAMP_OLD SIOCGSTAMP  // its name before Linux 5.1
#endif
#ifndef SO_TIMESTAMP_OLD
#define SO_TIMESTAMP_OLD SO_TIMESTAMP
#endif

int command_fd = -1;
ip_port control_adr(str(127, 0, 0, 1), protocol::default_peer_port);

int send_command(str const& message) {
    return utils::send_udp_packet(command_fd, control_adr, message);
}

unsigned char utils::receive_buffer[65536];

namespace {

rtimestamp instant_of(timeval const& day) {
    return rtimestamp(day.tv_sec * 1000000000LL + day.tv_usec * 1000LL);
}

/// The kernel's seconds and microseconds: two words of 32 bits (good until 2106), or of 64 from a 64-bit kernel and
/// from one built without 32-bit times.
rtimestamp stamp_of_words(void const* from, std::size_t size) {
    std::uint64_t words[2];
    if (size >= sizeof words) {
        memcpy(words, from, sizeof words);
    } else {
        std::uint32_t narrow[2];
        memcpy(narrow, from, sizeof narrow);
        words[0] = narrow[0];
        words[1] = narrow[1];
    }
    return rtimestamp(static_cast<long long>(words[0]) * 1000000000LL + static_cast<long long>(words[1]) * 1000LL);
}

/// That of the datagram, which came with it or is asked for.
rtimestamp arrival_stamp(int fd, msghdr& message) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part))
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_TIMESTAMP_OLD)
            return stamp_of_words(CMSG_DATA(part), part->cmsg_len - CMSG_LEN(0));
    return utils::receive_stamp(fd);
}

/// Sets an address, which stays as it is, shared, when it is that one.
template <typename octets>
void set_address(str& address, octets const& wanted) {
    if (address.length() != sizeof wanted || memcmp(address.cbuffer(), &wanted, sizeof wanted) != 0)
        address = str(reinterpret_cast<unsigned char const*>(&wanted), sizeof wanted);
}

/// One datagram into the shared buffer, and its stamp if that is wanted; its length when a sender of the wanted family
/// came with it, else 0.
template <typename family_address>
int receive_from(int fd, family_address& sender, rtimestamp* stamp) {
    alignas(cmsghdr) unsigned char control[64];  // two stamps: a C library may add its own form
    iovec into{utils::receive_buffer, sizeof utils::receive_buffer};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &into;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = stamp ? sizeof control : 0;
    ssize_t const n = recvmsg(fd, &message, MSG_DONTWAIT);
    if (n <= 0 || message.msg_namelen != sizeof sender)
        return 0;
    if (stamp)
        *stamp = arrival_stamp(fd, message);
    return static_cast<int>(n);
}

}  // namespace

int utils::send_udp_packet(int fd, ip_port const& to, str const& data) {
    return send_udp_packet(fd, socket_address(to), data);
}

int utils::send_udp_packet(int fd, socket_address const& to, str const& data) {
    if (!to.usable)
        return -1;
    return static_cast<int>(sendto(fd, data.cbuffer(), static_cast<size_t>(data.length()), 0, &to.any, to.length));
}

str utils::recv_udp_packet4(int fd, ip_port& from, rtimestamp* stamp) {
    sockaddr_in sender{};
    int const n = receive_from(fd, sender, stamp);
    if (n == 0)
        return str();
    set_address(from.address, sender.sin_addr);
    from.port = ntohs(sender.sin_port);
    return str(receive_buffer, n);
}

str utils::recv_udp_packet6(int fd, ip_port& from, rtimestamp* stamp) {
    sockaddr_in6 sender{};
    int const n = receive_from(fd, sender, stamp);
    if (n == 0)
        return str();
    set_address(from.address, sender.sin6_addr);
    from.port = ntohs(sender.sin6_port);
    return str(receive_buffer, n);
}

void utils::start_stamping(int fd) {
    int const on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_TIMESTAMP_OLD, &on, sizeof on) != 0)
        receive_stamp(fd);
}

rtimestamp utils::receive_stamp(int fd) {
    constexpr std::uint64_t untouched = UINT64_MAX;  // no number of microseconds
    alignas(16) std::uint64_t words[2] = {untouched, untouched};
    if (ioctl(fd, SIOCGSTAMP_OLD, words) != 0)  // the request that every kernel knows
        return rtimestamp();
    return stamp_of_words(words, words[1] == untouched ? sizeof words / 2 : sizeof words);
}

rtimestamp utils::time_of_day() {
    timeval day{};
    gettimeofday(&day, nullptr);
    return instant_of(day);
}

rtimestamp utils::on_process_clock(rtimestamp const& stamp) {
    rtimestamp const now = rtimestamp::now();
    long long const age = time_of_day().diff_ticks(stamp);
    if (stamp == rtimestamp() || age < 0)
        return now;
    return rtimestamp(now.diff_ticks(rtimestamp(age)));
}
