#pragma once

#include <fxsmedia/wire.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace fxsmedia {

/// A UDP socket of any free port, connected to the process's control port: nobody else's datagrams get in. Never
/// waits.
class control_socket {
public:
    control_socket() = default;
    control_socket(control_socket const&) = delete;
    control_socket& operator=(control_socket const&) = delete;
    ~control_socket() { close(); }

    /// `ip`: IPv4 text. false: see errno.
    bool open(char const* ip, int port) {
        close();
        std::optional<endpoint> const remote = endpoint::from_text(ip, port);
        if (!remote || remote->ip_bytes != 4) {
            errno = EINVAL;
            return false;
        }
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(remote->port);
        std::memcpy(&address.sin_addr, remote->ip, sizeof address.sin_addr);
        descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (descriptor < 0)
            return false;
        void const* const generic = &address;
        if (connect(descriptor, static_cast<sockaddr const*>(generic), sizeof address) == 0)
            return true;
        int const reason = errno;
        close();
        errno = reason;
        return false;
    }
    void close() {
        if (descriptor >= 0)
            ::close(descriptor);
        descriptor = -1;
    }
    int fd() const { return descriptor; }

    /// Nothing listened at the other end, since the socket was opened or this was forgotten.
    bool refused() const { return turned_away; }
    void forget_refusal() { turned_away = false; }

    /// false: see errno. The kernel reports with it what became of an earlier datagram; this one is then sent again.
    bool send(byte_view datagram) {
        for (int attempt = 0; attempt < 2; attempt++) {
            if (::send(descriptor, datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0)
                return true;
            if (errno != ECONNREFUSED)
                return false;
            turned_away = true;
        }
        return false;
    }

    /// The next datagram that is there, in this memory; nullopt when there is none.
    std::optional<byte_view> receive(std::span<std::uint8_t> memory) {
        for (;;) {
            ssize_t const size = recv(descriptor, memory.data(), memory.size(), 0);
            if (size >= 0)
                return memory.first(static_cast<std::size_t>(size));
            if (errno != ECONNREFUSED && errno != EINTR)
                return std::nullopt;
            turned_away = turned_away || errno == ECONNREFUSED;
        }
    }

private:
    int descriptor = -1;
    bool turned_away = false;
};

}  // namespace fxsmedia
