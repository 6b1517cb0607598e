#pragma once

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/fxslink/impairment.h"

/// A packet or a piece of a stream.
using octets = std::vector<std::uint8_t>;

/// A descriptor that is closed with its owner. Move-only.
class descriptor {
public:
    explicit descriptor(int number = -1) : fd(number) {}
    descriptor(descriptor&& other) noexcept : fd(other.release()) {}
    descriptor& operator=(descriptor&& other) noexcept;
    ~descriptor();

    int get() const { return fd; }
    bool open() const { return fd >= 0; }

private:
    int release();
    int fd;
};

/// A UDP socket bound to 127.0.0.1; throws std::runtime_error.
descriptor bind_udp(int port);
/// A listening TCP socket on 127.0.0.1; throws std::runtime_error.
descriptor listen_tcp(int port);

/// Two UDP ports with a bad network between them: what arrives at one leaves from the other, to the last
/// sender there. A side gets nothing before it has sent something.
class udp_link {
public:
    using clock = std::chrono::steady_clock;

    udp_link(int port_a, int port_b, impairment::settings const& settings, std::uint32_t seed);

    int fd(int side) const { return sides[static_cast<std::size_t>(side)].socket.get(); }
    /// Takes one datagram off a side's socket.
    void receive(int side, clock::time_point now);
    /// Sends what is due and says when the next packet will be; nothing waits: no time.
    std::optional<clock::time_point> send_due(clock::time_point now);
    /// What was offered by a side, and what became of it.
    impairment::counters const& count(int side) const { return sides[static_cast<std::size_t>(side)].network.count(); }

private:
    struct side_state {
        descriptor socket;
        impairment network;  ///< of what this side sends
        std::optional<sockaddr_in> peer;
    };
    struct waiting {
        int to_side;
        octets data;
    };

    std::array<side_state, 2> sides;
    std::multimap<clock::time_point, waiting> queue;
};

/// Two TCP ports joined to one stream: what a client of one sends, the client of the other receives, unchanged. A new
/// client replaces the old one; what arrives while the other side has no client is dropped.
class tcp_link {
public:
    tcp_link(int port_a, int port_b);

    int listening_fd(int side) const { return sides[static_cast<std::size_t>(side)].listening.get(); }
    /// -1 while there is no client.
    int client_fd(int side) const { return sides[static_cast<std::size_t>(side)].client.get(); }
    void accept_client(int side);
    /// Passes on what the client sent; when it has closed, so does this side.
    void receive(int side);
    /// Bytes that a side's clients have sent.
    unsigned long count(int side) const { return sides[static_cast<std::size_t>(side)].bytes; }

private:
    struct side_state {
        descriptor listening;
        descriptor client;
        unsigned long bytes = 0;
    };
    std::array<side_state, 2> sides;
};
