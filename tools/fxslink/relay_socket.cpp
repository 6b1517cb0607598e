#include "tools/fxslink/relay_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

descriptor& descriptor::operator=(descriptor&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
}

descriptor::~descriptor() {
    if (open())
        close(fd);
}

int descriptor::release() {
    return std::exchange(fd, -1);
}

namespace {

descriptor bind_loopback(int type, int port) {
    descriptor made(socket(AF_INET, type, 0));
    int const on = 1;
    if (type == SOCK_STREAM)
        setsockopt(made.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!made.open() || bind(made.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("port " + std::to_string(port) + ": " + std::strerror(errno));
    return made;
}

}  // namespace

descriptor bind_udp(int port) {
    return bind_loopback(SOCK_DGRAM, port);
}

descriptor listen_tcp(int port) {
    descriptor listening = bind_loopback(SOCK_STREAM, port);
    if (listen(listening.get(), 1) != 0)
        throw std::runtime_error("port " + std::to_string(port) + ": " + std::strerror(errno));
    return listening;
}
