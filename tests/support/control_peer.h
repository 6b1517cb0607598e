#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/udp_peer.h"

/// Call control in the same process: while it lives, command_fd is a loopback socket and control_adr points here,
/// so everything that the core reports can be read. It parses elements by itself. Logging is off unless asked for.
class control_peer {
public:
    using element = std::pair<int, std::string>;  // tag, value

    explicit control_peer(int log_threshold = -1);
    ~control_peer();

    ip_port address() const { return peer.address(); }

    /// The datagrams that arrived since the last call, as they are.
    std::vector<std::string> datagrams();
    /// The same without log lines.
    std::vector<std::string> reports();
    /// Only the log lines, as "level text".
    std::vector<std::string> log_lines();
    /// Log lines and reports (in hex) in the order of their arrival.
    std::vector<std::string> transcript();

    /// Elements of a byte string; fails the test when they don't fill it exactly.
    static std::vector<element> elements(std::string_view bytes);

private:
    std::vector<std::string> texts(bool reports_too);
    udp_peer peer;
};

/// Independent encoders.
std::string element_of(int tag, std::string_view value);
std::string short_element(int tag, unsigned value);
