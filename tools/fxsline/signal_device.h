// The far side of the signalling channel: a pseudo-terminal whose slave the process opens as its serial device,
// through a symbolic link. Bytes pass both ways as they are. Owns the terminal and the link.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fxsline {

class signal_device {
public:
    signal_device() = default;
    signal_device(signal_device const&) = delete;
    ~signal_device();

    // Makes the terminal and the link to it. A link to a terminal that is there already, as a killed run leaves it,
    // is replaced. An empty text, or what went wrong.
    std::string create(std::string const& link);

    // Readable (for poll) when the process has written; -1 before create().
    int fd() const { return master; }

    // What the process has written, up to 1024 bytes; empty if nothing. Never waits.
    std::vector<uint8_t> receive();

    // Returns how many of `bytes` the terminal took: all, unless the process has left several kB unread.
    size_t send(std::span<uint8_t const> bytes);

private:
    int master = -1;
    int slave = -1;  // kept open: with nobody there, the master would report a hang-up again and again
    std::string path;
};

}  // namespace fxsline
