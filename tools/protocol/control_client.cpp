#include "tools/protocol/control_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace protocol {
namespace {

constexpr std::size_t largest_datagram_bytes = 65536;
constexpr control_client::milliseconds session_retry{250};

sockaddr_in socket_address(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    return address;
}

int milliseconds_until(std::chrono::steady_clock::time_point deadline) {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000'000));
}

}  // namespace

control_client::control_client(control_client&& other) noexcept {
    *this = std::move(other);
}

control_client& control_client::operator=(control_client&& other) noexcept {
    if (this != &other) {
        close_socket();
        socket_fd = std::exchange(other.socket_fd, -1);
        turned_away = other.turned_away;
        ended = other.ended;
        last_error = std::move(other.last_error);
        unclaimed = std::move(other.unclaimed);
    }
    return *this;
}

control_client::~control_client() {
    close_socket();
}

void control_client::close_socket() {
    if (socket_fd >= 0) {
        close(socket_fd);
        socket_fd = -1;
    }
}

void control_client::note_error(char const* what) {
    last_error = std::string(what) + ": " + std::strerror(errno);
}

control_client control_client::connect_udp(std::string const& host, std::uint16_t port, std::uint16_t local_port) {
    control_client client;
    sockaddr_in remote = socket_address(port);
    if (inet_pton(AF_INET, host.c_str(), &remote.sin_addr) != 1) {
        client.last_error = "\"" + host + "\" is no IPv4 address";
        return client;
    }
    client.socket_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in const local = socket_address(local_port);
    char const* failed = nullptr;
    if (client.socket_fd < 0)
        failed = "socket";
    else if (bind(client.socket_fd, reinterpret_cast<sockaddr const*>(&local), sizeof local) != 0)
        failed = "bind";
    else if (connect(client.socket_fd, reinterpret_cast<sockaddr const*>(&remote), sizeof remote) != 0)
        failed = "connect";
    if (failed != nullptr) {
        client.note_error(failed);
        client.close_socket();
    }
    return client;
}

std::uint16_t control_client::local_port() const {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    bool const known = getsockname(socket_fd, reinterpret_cast<sockaddr*>(&local), &size) == 0;
    return known && local.sin_family == AF_INET ? ntohs(local.sin_port) : std::uint16_t{0};
}

bool control_client::send(byte_view datagram) {
    ssize_t sent = ::send(socket_fd, datagram.data(), datagram.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == ECONNREFUSED) {  // about an earlier datagram; this one was not sent
        turned_away = true;
        sent = ::send(socket_fd, datagram.data(), datagram.size(), MSG_NOSIGNAL);
    }
    if (sent < 0) {
        ended = ended || errno == EPIPE || errno == ECONNRESET;
        note_error("send");
    }
    return sent >= 0;
}

bool control_client::take_datagram(bytes& datagram) {
    datagram.resize(largest_datagram_bytes);
    ssize_t const size = recv(socket_fd, datagram.data(), datagram.size(), MSG_DONTWAIT);
    if (size < 0) {
        turned_away = turned_away || errno == ECONNREFUSED;
        ended = ended || errno == ECONNRESET;
        return false;
    }
    int type = SOCK_DGRAM;
    socklen_t type_size = sizeof type;
    if (size == 0 && getsockopt(socket_fd, SOL_SOCKET, SO_TYPE, &type, &type_size) == 0 && type != SOCK_DGRAM) {
        ended = true;  // an empty read ends a connection; on UDP it is an empty datagram
        return false;
    }
    turned_away = false;
    datagram.resize(static_cast<std::size_t>(size));
    return true;
}

std::optional<bytes> control_client::receive_datagram(milliseconds timeout) {
    clock::time_point const deadline = clock::now() + timeout;
    bytes datagram;
    while (valid() && !ended) {
        if (take_datagram(datagram))
            return datagram;
        int const wait_ms = milliseconds_until(deadline);
        pollfd ready{socket_fd, POLLIN, 0};
        if (ended || wait_ms == 0)
            break;
        poll(&ready, 1, wait_ms);
    }
    return std::nullopt;
}

bool control_client::keep_next_datagram(clock::time_point deadline) {
    auto const left = std::chrono::ceil<milliseconds>(deadline - clock::now());
    std::optional<bytes> const datagram = receive_datagram(std::max(left, milliseconds(0)));
    if (datagram) {
        std::vector<report> const reports = parse_reports(*datagram);
        unclaimed.insert(unclaimed.end(), reports.begin(), reports.end());
    }
    return datagram.has_value();
}

std::optional<report> control_client::receive(milliseconds timeout) {
    if (unclaimed.empty() && !keep_next_datagram(clock::now() + timeout))
        return std::nullopt;
    std::optional<report> oldest = std::move(unclaimed.front());
    unclaimed.pop_front();
    return oldest;
}

bool control_client::start_session(milliseconds timeout) {
    clock::time_point const deadline = clock::now() + timeout;
    do {
        auto const left = std::chrono::ceil<milliseconds>(deadline - clock::now());
        send(encode(session_command{}));
        if (wait_for<heartbeat>(std::clamp(left, milliseconds(0), session_retry)))
            return true;
    } while (clock::now() < deadline && valid() && !ended);
    return false;
}

}  // namespace protocol
