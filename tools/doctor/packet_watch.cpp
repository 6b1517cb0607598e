#include "tools/doctor/packet_watch.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lib/wire.h"

namespace doctor {
namespace {

using protocol::byte_view;
using protocol::bytes;

constexpr int icmp = 1, udp = 17, icmpv6 = 58;  // IANA protocol numbers
constexpr std::size_t udp_header_bytes = 8;
constexpr std::size_t icmp_header_bytes = 8;
constexpr std::size_t ipv4_header_bytes = 20;
constexpr std::size_t ipv6_header_bytes = 40;
constexpr std::size_t largest_packet_bytes = 65536;
constexpr int queue_bytes = 4 << 20;

bytes part(byte_view data, std::size_t at, std::size_t count) {
    return {data.begin() + static_cast<std::ptrdiff_t>(at), data.begin() + static_cast<std::ptrdiff_t>(at + count)};
}

/// Addresses and upper protocol of an IP header; takes the header off. -1: not one, or a later fragment.
int take_ip_header(byte_view& packet, seen_datagram& found) {
    if (packet.size() >= ipv4_header_bytes && packet[0] >> 4 == 4) {
        std::size_t const header = (packet[0] & 15u) * 4;
        bool const later_fragment = (wire::get16(packet.data() + 6) & 0x1FFF) != 0;
        int const upper = packet[9];
        if (header > packet.size() || later_fragment)
            return -1;
        found.from.ip = part(packet, 12, 4);
        found.to.ip = part(packet, 16, 4);
        packet = packet.subspan(header);
        return upper;
    }
    if (packet.size() >= ipv6_header_bytes && packet[0] >> 4 == 6) {
        int const upper = packet[6];
        found.from.ip = part(packet, 8, 16);
        found.to.ip = part(packet, 24, 16);
        packet = packet.subspan(ipv6_header_bytes);
        return upper;
    }
    return -1;
}

bool take_udp_header(byte_view& packet, seen_datagram& found) {
    if (packet.size() < udp_header_bytes)
        return false;
    found.from.port = wire::get16(packet.data());
    found.to.port = wire::get16(packet.data() + 2);
    packet = packet.subspan(udp_header_bytes);
    return true;
}

bool is_port_unreachable(int protocol, byte_view message) {
    return message.size() >= icmp_header_bytes && ((protocol == icmp && message[0] == 3 && message[1] == 3) ||
                                                   (protocol == icmpv6 && message[0] == 1 && message[1] == 4));
}

}  // namespace

bool read_ip_packet(byte_view packet, seen_datagram& found) {
    int upper = take_ip_header(packet, found);
    if (is_port_unreachable(upper, packet)) {
        found.unreachable = true;
        packet = packet.subspan(icmp_header_bytes);
        upper = take_ip_header(packet, found);
    }
    if (upper != udp || !take_udp_header(packet, found))
        return false;
    found.payload.assign(packet.begin(), packet.end());
    return true;
}

packet_watch::packet_watch()
    : socket_fd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL))),
      loopback(if_nametoindex("lo")) {
    if (socket_fd < 0) {
        reason = std::strerror(errno);
        return;
    }
    int const on = 1;
    setsockopt(socket_fd, SOL_SOCKET, SO_TIMESTAMP, &on, sizeof on);
    setsockopt(socket_fd, SOL_SOCKET, SO_RCVBUF, &queue_bytes, sizeof queue_bytes);
}

packet_watch::~packet_watch() {
    if (socket_fd >= 0)
        close(socket_fd);
}

void packet_watch::take(std::function<void(seen_datagram const&)> const& each) const {
    static bytes buffer(largest_packet_bytes);
    for (;;) {
        sockaddr_ll link{};
        iovec data{buffer.data(), buffer.size()};
        alignas(cmsghdr) unsigned char extra[128];
        msghdr message{&link, sizeof link, &data, 1, extra, sizeof extra, 0};
        ssize_t const size = recvmsg(socket_fd, &message, 0);
        if (size < 0)
            return;
        bool const on_loopback = static_cast<unsigned>(link.sll_ifindex) == loopback;
        bool const outgoing = link.sll_pkttype == PACKET_OUTGOING;
        if (on_loopback && outgoing)
            continue;  // comes a second time, as an arriving one
        seen_datagram found;
        for (cmsghdr const* one = CMSG_FIRSTHDR(&message); one != nullptr;
             one = CMSG_NXTHDR(&message, const_cast<cmsghdr*>(one))) {
            timeval stamp{};
            if (one->cmsg_level == SOL_SOCKET && one->cmsg_type == SO_TIMESTAMP) {
                std::memcpy(&stamp, CMSG_DATA(one), sizeof stamp);
                found.time_s = static_cast<double>(stamp.tv_sec) + static_cast<double>(stamp.tv_usec) / 1e6;
            }
        }
        found.arrives = on_loopback || link.sll_pkttype == PACKET_HOST;
        found.leaves = on_loopback || outgoing;
        if (read_ip_packet(byte_view(buffer).first(static_cast<std::size_t>(size)), found))
            each(found);
    }
}

}  // namespace doctor
