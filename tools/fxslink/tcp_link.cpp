#include "tools/fxslink/tcp_link.h"

#include <sys/socket.h>

tcp_link::tcp_link(int port_a, int port_b)
    : sides{side_state{listen_tcp(port_a), descriptor(), 0},
            side_state{listen_tcp(port_b), descriptor(), 0}} {}

void tcp_link::accept_client(int side) {
    side_state& at = sides[static_cast<std::size_t>(side)];
    at.client = descriptor(accept(at.listening.get(), nullptr, nullptr));
}

void tcp_link::receive(int side) {
    constexpr std::size_t piece = 65536;
    side_state& from = sides[static_cast<std::size_t>(side)];
    octets data(piece);
    ssize_t const n = recv(from.client.get(), data.data(), data.size(), 0);
    if (n <= 0) {
        from.client = descriptor();
        return;
    }
    from.bytes += static_cast<unsigned long>(n);
    int const to = client_fd(1 - side);
    if (to >= 0)
        send(to, data.data(), static_cast<std::size_t>(n), MSG_NOSIGNAL);
}
