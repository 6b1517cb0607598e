#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <map>

#include "tests/support/seed.h"
#include "tools/fxslink/links.h"
#include "tools/protocol/address.h"

/// What a network does to what a far end sends; delays differ, so that packets overtake each other.
struct network {
    int lost_percent, doubled_percent, most_delay_ms;
};

/// The far end of a call, a mirror: what the process sends comes back as it is, so that any codec and any key will do.
/// Two loopback ports, for RTP and RTCP, UDP or TCP. Served by its owner, without waiting.
class far_end {
public:
    far_end(bool over_tcp, bool over_ipv6, network impairments, dice& random)
        : tcp(over_tcp), net(impairments), decide(random) {
        sockaddr_in const v4{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        sockaddr_in6 const v6{AF_INET6, 0, 0, in6addr_loopback, 0};
        for (descriptor& fd : ports) {
            fd = descriptor(socket(over_ipv6 ? AF_INET6 : AF_INET,
                                   (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            over_ipv6 ? bind(fd.get(), reinterpret_cast<sockaddr const*>(&v6), sizeof v6)
                      : bind(fd.get(), reinterpret_cast<sockaddr const*>(&v4), sizeof v4);
            if (tcp)
                listen(fd.get(), 1);
        }
    }
    /// Where the process shall send RTP (0) and RTCP (1) to.
    protocol::address address(int side) const {
        sockaddr_in6 bound{};  // both families have the port in the same place
        socklen_t length = sizeof bound;
        getsockname(ports[side].get(), reinterpret_cast<sockaddr*>(&bound), &length);
        protocol::bytes ip{127, 0, 0, 1};
        if (bound.sin6_family == AF_INET6)
            ip.assign(bound.sin6_addr.s6_addr, bound.sin6_addr.s6_addr + 16);
        return {ip, ntohs(bound.sin6_port)};
    }
    void serve() {
        for (int const side : {0, 1}) {
            if (tcp && !hung_up && !streams[side].open())
                streams[side] = descriptor(accept4(ports[side].get(), nullptr, nullptr, SOCK_NONBLOCK));
            while (receive(side))
                continue;
        }
        for (; !late.empty() && late.begin()->first <= clock::now(); late.erase(late.begin())) {
            packet const& p = late.begin()->second;
            sendto(p.fd, p.data.data(), p.data.size(), MSG_NOSIGNAL,
                   reinterpret_cast<sockaddr const*>(&p.from), p.from_length);
        }
    }
    /// Ends its TCP connections and takes no new ones.
    void hang_up() {
        hung_up = true;
        late.clear();
        for (descriptor& stream : streams)
            stream = descriptor();
    }

    unsigned packets = 0;  ///< of RTP, on TCP pieces of the stream
    unsigned gaps = 0;     ///< sequence numbers that were not the one after the one before (UDP)

private:
    using clock = std::chrono::steady_clock;
    struct packet {
        int fd;
        sockaddr_in6 from;
        socklen_t from_length;
        octets data;
    };
    bool receive(int side) {
        std::uint8_t buffer[65536];
        packet p{(tcp ? streams : ports)[side].get(), {}, sizeof p.from, {}};
        ssize_t const n =
            recvfrom(p.fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&p.from), &p.from_length);
        if (n <= 0)
            return false;
        p.data.assign(buffer, buffer + n);
        if (side == 0) {
            auto const sequence = static_cast<std::uint16_t>(buffer[2] << 8 | buffer[3]);
            gaps += !tcp && packets > 0 && sequence != next_sequence;
            next_sequence = static_cast<std::uint16_t>(sequence + 1);
            packets++;
        }
        int const copies = decide.chance(net.lost_percent) ? 0 : decide.chance(net.doubled_percent) ? 2 : 1;
        for (int i = 0; i < copies || (tcp && i == 0); i++)
            late.emplace(
                clock::now() + std::chrono::milliseconds(tcp ? 0 : decide.below(net.most_delay_ms + 1)), p);
        return true;
    }

    bool tcp, hung_up = false;
    network net;
    dice& decide;
    descriptor ports[2], streams[2];
    std::multimap<clock::time_point, packet> late;
    std::uint16_t next_sequence = 0;
};
