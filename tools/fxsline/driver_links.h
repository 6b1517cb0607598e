#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/pipe_script.h"

namespace fxsline {

/// The driver's end of the message pipe: two named pipes, BASE0 from the driver to the process and BASE1 the other
/// way. The process sends nothing; BASE1 is there because the process opens it. Owns both files and removes them at the
/// end.
class driver_pipe {
public:
    driver_pipe() = default;
    driver_pipe(driver_pipe const&) = delete;
    ~driver_pipe();

    /// Creates the pipes; those that are there already, as a killed run leaves them, are taken over. An empty text, or
    /// what went wrong. Never waits for the process to open its end.
    std::string create(std::string const& base);

    bool is_open() const { return fd >= 0; }

    /// Writes all of `bytes` at once, or nothing. What the process has not read yet waits for it, even before it has
    /// started. 0, EMSGSIZE (more than PIPE_BUF bytes, 4096), or EAGAIN (the pipe is full).
    int send(std::string_view bytes);

private:
    std::vector<std::string> paths;
    int fd = -1;
};

/// The far side of the signalling channel: a pseudo-terminal whose slave the process opens as its serial device,
/// through a symbolic link. Bytes pass both ways as they are. Owns the terminal and the link.
class signal_device {
public:
    signal_device() = default;
    signal_device(signal_device const&) = delete;
    ~signal_device();

    /// Makes the terminal and the link to it. A link to a terminal that is there already, as a killed run leaves it,
    /// is replaced. An empty text, or what went wrong.
    std::string create(std::string const& link);

    /// Readable (for poll) when the process has written; -1 before create().
    int fd() const { return master; }

    /// What the process has written, up to 1024 bytes; empty if nothing. Never waits.
    std::vector<uint8_t> receive();

    /// Returns how many of `bytes` the terminal took: all, unless the process has left several kB unread.
    size_t send(std::span<uint8_t const> bytes);

private:
    int master = -1;
    int slave = -1;  ///< kept open: with no slave open, the master would report a hang-up again and again
    std::string path;
};

/// Where call control tells the driver to ring: a named pipe for each line, BASE0 to BASE3, that takes lines of text.
/// Owns the files and removes them at the end.
class ring_pipes {
public:
    ring_pipes() = default;
    ring_pipes(ring_pipes const&) = delete;
    ~ring_pipes();

    /// As driver_pipe::create().
    std::string create(std::string const& base, unsigned lines);

    /// Calls heard(line, text) for each whole line of text that was written, without its end.
    template <class action>
    void receive(action&& heard);

private:
    struct pipe {
        std::string path;
        int fd;
        std::string begun;  ///< of a line of text
    };
    std::vector<pipe> pipes;
};

struct links_config {
    std::string pipe;    ///< base path of the two named pipes; empty: no message pipe
    pipe_script script;  ///< what is sent over it, in any order
    std::string ring;    ///< base path of the ring device; empty: none
    std::string signal;  ///< path of the link to the signalling device; empty: no such device
};

/// The driver's links beside its device files: the message pipe and the signalling device to the process, the ring
/// device to call control; any may be missing. Reports what goes over them as events of the bank and sends the lines of
/// a script at their times. Not locked: line_mount serialises.
class driver_links {
public:
    /// The bank stays the caller's.
    explicit driver_links(line_bank& telephones) : bank(telephones) {}

    /// Creates what is configured. An empty text, or what went wrong.
    std::string create(links_config config);

    bool has_pipe() const { return pipe.is_open(); }
    bool has_signal() const { return signalling.fd() >= 0; }

    /// After the bank's tick: sends what is due, reports what call control has written to the ring device.
    void tick();

    /// Sends `bytes` over the message pipe, or hexadecimal text over the signalling device. 0, or an errno together
    /// with an event that says why not.
    int say(std::string_view bytes);
    int signal(std::string_view hex);

    /// Readable (for poll) when the process has written to the signalling device; -1 without one.
    int signal_fd() const { return signalling.fd(); }

    /// Reports what the process has written there.
    void receive_signal();

private:
    line_bank& bank;
    driver_pipe pipe;
    ring_pipes ringing;
    signal_device signalling;
    pipe_script script;    ///< by time
    size_t next_text = 0;  ///< of the script
};

}  // namespace fxsline
