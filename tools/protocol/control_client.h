#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "tools/protocol/commands.h"
#include "tools/protocol/reports.h"

namespace protocol {

/// Call control's end of the control link: sends commands, receives reports and keeps those that were not asked for
/// yet.
///
/// For one thread. Works on any connected socket that keeps message boundaries: a UDP socket to the process, or a
/// SOCK_SEQPACKET connection to a program in between. Prints nothing and never throws.
class control_client {
public:
    using milliseconds = std::chrono::milliseconds;

    control_client() = default;                         ///< not open
    explicit control_client(int fd) : socket_fd(fd) {}  ///< takes over a connected socket
    control_client(control_client&& other) noexcept;
    control_client& operator=(control_client&& other) noexcept;
    ~control_client();

    /// A UDP socket connected to the process's control port, so that datagrams of anybody else don't get in.
    /// host: IPv4 text. local_port 0: any. Check valid(); on failure error() says why.
    static control_client connect_udp(std::string const& host, std::uint16_t port, std::uint16_t local_port = 0);

    bool valid() const { return socket_fd >= 0; }
    int fd() const { return socket_fd; }
    std::uint16_t local_port() const;                        ///< 0 when there is none
    std::string const& error() const { return last_error; }  ///< of the last failure

    /// The other end said (ICMP) that nothing listens there; cleared by the next datagram that arrives.
    bool refused() const { return turned_away; }
    /// A program in between ended the connection; never true on UDP.
    bool closed() const { return ended; }

    /// One datagram. false: it could not be sent, see error().
    bool send(byte_view datagram);

    /// Makes this socket the process's peer: sends the session command every 250 ms until the empty answer (or a
    /// heartbeat, which looks the same) arrives. Reports that arrive meanwhile are kept.
    bool start_session(milliseconds timeout);

    /// The next datagram as it came, without looking at what is kept. nullopt after `timeout`.
    std::optional<bytes> receive_datagram(milliseconds timeout);

    /// The oldest kept report, otherwise the next one that arrives. nullopt after `timeout`.
    std::optional<report> receive(milliseconds timeout);

    /// The first report of type T for which `wanted` holds, among the kept ones or those that arrive within
    /// `timeout`. It is taken out; all others are kept, in order.
    template <class T>
    std::optional<T> wait_for(
        milliseconds timeout, std::function<bool(T const&)> const& wanted = [](T const&) { return true; });

    /// Reports that were not taken yet, oldest first; the caller may take or clear them.
    std::deque<report>& kept() { return unclaimed; }

private:
    using clock = std::chrono::steady_clock;

    void close_socket();
    void note_error(char const* what);
    bool take_datagram(bytes& datagram);  ///< false: none there
    bool keep_next_datagram(clock::time_point deadline);

    int socket_fd = -1;
    bool turned_away = false;
    bool ended = false;
    std::string last_error;
    std::deque<report> unclaimed;
};

template <class T>
std::optional<T> control_client::wait_for(milliseconds timeout, std::function<bool(T const&)> const& wanted) {
    clock::time_point const deadline = clock::now() + timeout;
    std::size_t looked_at = 0;
    do {
        for (; looked_at < unclaimed.size(); ++looked_at) {
            auto const candidate = unclaimed.begin() + static_cast<std::ptrdiff_t>(looked_at);
            if (T* found = std::get_if<T>(&*candidate); found != nullptr && wanted(*found)) {
                T result = std::move(*found);
                unclaimed.erase(candidate);
                return result;
            }
        }
    } while (keep_next_datagram(deadline));
    return std::nullopt;
}

}  // namespace protocol
