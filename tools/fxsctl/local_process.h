#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What /proc tells about a media process of this machine and its sockets. Everything is read anew with each call;
/// what this user may not see is absent.
namespace fxsctl {

struct udp_socket {
    std::uint16_t local_port = 0;
    bool ipv6 = false;
    std::uint64_t inode = 0;
    std::uint64_t unread_bytes = 0;  ///< in its receive queue
    std::uint64_t drops = 0;         ///< datagrams for which the queue had no room
};

/// All UDP sockets of this network name space.
std::vector<udp_socket> udp_sockets();

/// "name (PID)" of the program that owns the socket; empty when it cannot be seen.
std::string socket_owner(std::uint64_t inode);

class local_process {
public:
    /// The process whose control socket has this port. nullopt: none, not a media process, or another user's.
    static std::optional<local_process> behind(std::uint16_t control_port);

    /// Media processes that were started with this control port and have no socket on it: they live without one.
    static std::vector<pid_t> locked_out(std::uint16_t control_port);

    pid_t pid() const { return id; }
    /// As in /proc/PID/stat: 'T' is stopped, 'S' waits.
    char state() const;

    /// Path of a line's device, as the process opens it.
    std::string line_path(unsigned line) const;
    /// Where this program finds it: below the process's root and working directory.
    std::string reachable(std::string const& path) const;
    /// The process's descriptor of the device; nullopt: it has none.
    std::optional<int> descriptor(std::string const& path) const;
    /// Bytes that were read and written through the descriptor, as the kernel counts them for files; 0 when it doesn't.
    std::uint64_t position(int descriptor) const;
    /// Lines whose device is open.
    std::vector<unsigned> open_lines() const;
    /// Why the device of this line is not open; empty: it is.
    std::string line_trouble(unsigned line) const;

    /// Path of the signalling device; empty: it was started without one.
    std::string signal_path() const { return option("--tunnel", ""); }
    bool ipv4() const { return !last_of_family("--ipv6"); }
    bool ipv6() const { return !last_of_family("--ipv4"); }

private:
    explicit local_process(pid_t pid);
    std::string option(std::string const& name, std::string const& fallback) const;
    bool last_of_family(std::string const& name) const;
    std::string folder() const { return "/proc/" + std::to_string(id) + "/"; }

    pid_t id;
    std::vector<std::string> arguments;
};

}  // namespace fxsctl
