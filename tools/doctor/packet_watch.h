#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tools/protocol/address.h"

namespace doctor {

/// One UDP datagram on its way, or what an ICMP message quotes of one.
struct seen_datagram {
    double time_s = 0;  ///< of the system clock
    protocol::address from;
    protocol::address to;
    protocol::bytes payload;
    bool arrives = false;  ///< at this machine; both this and `leaves` on the loopback interface
    bool leaves = false;
    bool unreachable = false;  ///< an ICMP message about it: nothing listens at `to`
};

/// The UDP datagram in an IPv4 or IPv6 packet, or the one that an ICMP "port unreachable" is about. false: neither.
bool read_ip_packet(protocol::byte_view packet, seen_datagram& found);

/// A packet socket on all interfaces: needs CAP_NET_RAW.
class packet_watch {
public:
    packet_watch();
    packet_watch(packet_watch const&) = delete;
    ~packet_watch();

    int fd() const { return socket_fd; }  ///< -1: not allowed, obstacle() says why
    std::string const& obstacle() const { return reason; }
    /// Hands on what has arrived; doesn't wait.
    void take(std::function<void(seen_datagram const&)> const& each) const;

private:
    int socket_fd = -1;
    unsigned loopback = 0;
    std::string reason;
};

}  // namespace doctor
