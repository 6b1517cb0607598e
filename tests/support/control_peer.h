#pragma once

#include <utility>

#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "tests/support/udp_peer.h"

/// Independent encoders.
inline std::string element_of(int tag, std::string_view value) {
    return be16(static_cast<unsigned>(tag)) + be16(static_cast<unsigned>(value.size())) + std::string(value);
}

inline std::string short_element(int tag, unsigned value) {
    return element_of(tag, be16(value));
}

/// Call control in the same process: while it lives, command_fd is a loopback socket and control_adr points here,
/// so everything that the core reports can be read. It parses elements by itself. Logging is off unless asked for.
class control_peer {
public:
    using element = std::pair<int, std::string>;  // tag, value

    explicit control_peer(int log_threshold = -1) {
        command_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        control_adr = peer.address();
        log_set_level(log_threshold);
    }
    ~control_peer() {
        log_set_level(-1);
        close(std::exchange(command_fd, -1));
        control_adr = ip_port(str(127, 0, 0, 1), protocol::default_peer_port);
    }

    ip_port address() const { return peer.address(); }

    /// The datagrams that arrived since the last call, as they are.
    std::vector<std::string> datagrams() { return peer.received(command_fd); }
    /// The same without log lines.
    std::vector<std::string> reports() {
        std::vector<std::string> others = datagrams();
        std::erase_if(others, [](std::string const& d) { return get_be16(d, 0) == protocol::report_log::tag; });
        return others;
    }
    /// Only the log lines, as "level text".
    std::vector<std::string> log_lines() { return texts(false); }
    /// Log lines and reports (in hex) in the order of their arrival.
    std::vector<std::string> transcript() { return texts(true); }

    /// Elements of a byte string; fails the test when they don't fill it exactly.
    static std::vector<element> elements(std::string_view bytes) {
        std::vector<element> found;
        while (bytes.size() >= 4 && bytes.size() >= 4 + get_be16(bytes, 2)) {
            unsigned const length = get_be16(bytes, 2);
            found.emplace_back(get_be16(bytes, 0), bytes.substr(4, length));
            bytes.remove_prefix(4 + length);
        }
        EXPECT_TRUE(bytes.empty()) << "bytes left over: " << to_hex(bytes);
        return found;
    }

private:
    static std::string log_text(std::vector<element> const& inner) {
        bool const right = inner.size() >= 2 && inner[0].first == protocol::report_log::level &&
                           inner[0].second.size() == 2 && inner[1].first == protocol::report_log::text;
        return right ? std::to_string(get_be16(inner[0].second, 0)) + " " + inner[1].second : "no log line";
    }
    std::vector<std::string> texts(bool reports_too) {
        std::vector<std::string> lines;
        for (std::string const& datagram : datagrams())
            for (auto const& [tag, value] : elements(datagram))
                if (tag == protocol::report_log::tag || reports_too)
                    lines.push_back(tag == protocol::report_log::tag ? log_text(elements(value))
                                                                     : to_hex(element_of(tag, value)));
        return lines;
    }

    udp_peer peer;
};
