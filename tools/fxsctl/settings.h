#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

/// What every subcommand shares: its options and how a run ends.
namespace fxsctl {

struct settings {
    std::string host = "127.0.0.1";
    std::uint16_t port = 0;        ///< control port of the process, 0: not given
    std::uint16_t local_port = 0;  ///< 0: any, and a running monitor is used when there is one
    unsigned timeout_ms = 1000;
    bool no_session = false;
    bool json = false;
    bool verbose = false;

    std::chrono::milliseconds timeout() const { return std::chrono::milliseconds(timeout_ms); }
    /// "127.0.0.1:5000".
    std::string process_address() const { return host + ":" + std::to_string(port); }
};

/// Scripts may rely on these.
enum class exit_code {
    ok = 0,
    fault = 1,      ///< of `doctor`: something is wrong with a call
    usage = 2,      ///< wrong or missing arguments; nothing was sent
    no_answer = 3,  ///< the process (or the monitor in between) did not answer in time
    refused = 4,    ///< the process answered that it could not, or answered everything but this command
    local = 5,      ///< a socket or file on this side could not be used
};

/// Ends a run that has said everything with an exit code.
class ended : public std::exception {
public:
    explicit ended(exit_code code) : exits_with(code) {}
    exit_code code() const { return exits_with; }

private:
    exit_code exits_with;
};

/// Ends a run with its message and exit code.
class failure : public std::runtime_error {
public:
    failure(exit_code code, std::string const& message) : std::runtime_error(message), exits_with(code) {}
    exit_code code() const { return exits_with; }

private:
    exit_code exits_with;
};

}  // namespace fxsctl
