// fxslink's relay over real sockets, on a clock of the test.

#include <gtest/gtest.h>

#include "tests/support/loopback.h"
#include "tools/fxslink/links.h"
#include "tools/protocol/control_client.h"

using namespace std::chrono_literals;
using protocol::bytes;

namespace {

protocol::control_client client_of(int relay_fd) {
    return protocol::control_client::connect_udp("127.0.0.1", bound_port(relay_fd));
}

TEST(udp_link, passes_to_the_other_side_what_is_due) {
    udp_link link(0, 0, {.delay_ms = 40}, 1);
    protocol::control_client clients[] = {client_of(link.fd(0)), client_of(link.fd(1))};
    udp_link::clock::time_point now{};
    for (int const from : {1, 0, 1}) {  // what the first sends is lost: nobody has come to the other side yet
        now += 1s;
        clients[from].send(bytes{static_cast<std::uint8_t>(from)});
        link.receive(from, now);
        EXPECT_EQ(link.send_due(now + 39ms), now + 40ms);
        EXPECT_EQ(link.send_due(now + 40ms), std::nullopt);
    }
    for (int const side : {0, 1}) {
        EXPECT_EQ(clients[side].receive_datagram(5s), bytes{static_cast<std::uint8_t>(1 - side)});
        EXPECT_EQ(clients[side].receive_datagram(0s), std::nullopt);
    }
}

}  // namespace
