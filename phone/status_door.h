#pragma once

#include <functional>
#include <string>

namespace fxsphone {

/// A Unix socket that gives whoever connects a text, and ends the connection. Only the same user and root get it.
class status_door {
public:
    status_door() = default;
    ~status_door();
    status_door(status_door const&) = delete;

    /// Listens at `path`, which is taken over when a killed run has left it, from libre's main loop on. An empty text,
    /// or what went wrong.
    std::string open(std::string const& path, std::function<std::string()> tell);
    void close();

private:
    void answer();

    std::string where;
    std::function<std::string()> text;
    int fd = -1;
};

/// What the door at `path` says; empty when nobody is there, or refuses: see errno.
std::string ask_status(std::string const& path);

}  // namespace fxsphone
