#pragma once

#include <array>

#include "tools/fxslink/relay_socket.h"

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
