#include "tests/support/control_peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "tests/support/bytes.h"

namespace {

namespace log_report = protocol::report_log;

std::string log_text(std::vector<control_peer::element> const& inner) {
    if (inner.size() < 2 || inner[0].first != log_report::level || inner[0].second.size() != 2 ||
        inner[1].first != log_report::text)
        return "no log line";
    return std::to_string(get_be16(inner[0].second, 0)) + " " + inner[1].second;
}

}  // namespace

control_peer::control_peer(int level) {
    command_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    control_adr = peer.address();
    log_set_level(level);
}

control_peer::~control_peer() {
    log_set_level(-1);
    close(command_fd);
    command_fd = -1;
    control_adr = ip_port(str(127, 0, 0, 1), protocol::default_peer_port);
}

std::vector<std::string> control_peer::datagrams() {
    return peer.received(command_fd);
}

std::vector<std::string> control_peer::reports() {
    std::vector<std::string> others = datagrams();
    std::erase_if(others,
                  [](std::string const& datagram) { return get_be16(datagram, 0) == log_report::tag; });
    return others;
}

std::vector<std::string> control_peer::log_lines() {
    return texts(false);
}

std::vector<std::string> control_peer::transcript() {
    return texts(true);
}

std::vector<std::string> control_peer::texts(bool reports_too) {
    std::vector<std::string> lines;
    for (std::string const& datagram : datagrams())
        for (auto const& [tag, value] : elements(datagram))
            if (tag == log_report::tag || reports_too)
                lines.push_back(tag == log_report::tag ? log_text(elements(value))
                                                       : to_hex(element_of(tag, value)));
    return lines;
}

std::vector<control_peer::element> control_peer::elements(std::string_view bytes) {
    std::vector<element> found;
    while (bytes.size() >= 4 && bytes.size() >= 4 + get_be16(bytes, 2)) {
        unsigned const length = get_be16(bytes, 2);
        found.emplace_back(get_be16(bytes, 0), bytes.substr(4, length));
        bytes.remove_prefix(4 + length);
    }
    EXPECT_TRUE(bytes.empty()) << "bytes left over: " << to_hex(bytes);
    return found;
}

std::string element_of(int tag, std::string_view value) {
    return be16(static_cast<unsigned>(tag)) + be16(static_cast<unsigned>(value.size())) + std::string(value);
}

std::string short_element(int tag, unsigned value) {
    return element_of(tag, be16(value));
}
