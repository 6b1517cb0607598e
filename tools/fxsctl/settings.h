// The options that every subcommand shares.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace fxsctl {

struct settings {
    std::string host = "127.0.0.1";
    std::uint16_t port = 0;        // control port of the process, 0 = not given
    std::uint16_t local_port = 0;  // 0: any, and a running monitor is used when there is one
    unsigned timeout_ms = 1000;
    bool no_session = false;
    bool json = false;
    bool verbose = false;

    std::chrono::milliseconds timeout() const { return std::chrono::milliseconds(timeout_ms); }
};

}  // namespace fxsctl
