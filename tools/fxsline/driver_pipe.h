// The driver's end of the message pipe: two named pipes, BASE0 from the driver to the process and BASE1 the other
// way. The process sends nothing, so BASE1 is only there to be opened. Owns both files and removes them at the end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fxsline {

class driver_pipe {
public:
    driver_pipe() = default;
    driver_pipe(driver_pipe const&) = delete;
    ~driver_pipe();

    // Creates the pipes; those that are there already, as a killed run leaves them, are taken over. An empty text, or
    // what went wrong. Never waits for the process to open its end.
    std::string create(std::string const& base);

    bool is_open() const { return fd >= 0; }

    // Writes all of `bytes` at once, or nothing. What the process has not read yet waits for it, even before it has
    // started. 0, EMSGSIZE (more than PIPE_BUF bytes, 4096), or EAGAIN (the pipe is full).
    int send(std::string_view bytes);

private:
    std::vector<std::string> paths;
    int fd = -1;
};

}  // namespace fxsline
