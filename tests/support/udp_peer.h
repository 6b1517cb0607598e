#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lib/address.h"

/// A far end on the loopback: one bound UDP socket of a test.
class udp_peer {
public:
    explicit udp_peer(bool over_ipv6 = false);
    ~udp_peer();
    udp_peer(udp_peer const&) = delete;
    udp_peer& operator=(udp_peer const&) = delete;

    ip_port address() const;
    int fd() const { return socket_fd; }

    void send(ip_port const& to, std::string_view datagram) const;

    /// All datagrams that socket `sender_fd` has sent here so far: a mark is sent through that socket behind them,
    /// and what comes before it is returned. Waits for the mark, never for a time.
    std::vector<std::string> received(int sender_fd);

private:
    int socket_fd;
    bool ipv6;
};

/// Port that a socket is bound to.
int bound_port(int fd);
