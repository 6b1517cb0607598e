#include "tools/protocol/control_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/tools/fxsctl/fake_process.h"

using namespace protocol;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds soon{5000};  // longer than any answer takes

control_client connected_to(fake_process& process) {
    control_client client = control_client::connect_udp("127.0.0.1", process.port());
    EXPECT_TRUE(client.start_session(soon));
    return client;
}

TEST(control_client, reports_that_nobody_asked_for_yet_are_kept_in_order) {
    fake_process process;
    control_client client = connected_to(process);
    process.report(from_hex("001c0006000400020001 001c0006000400020002").value());
    process.report(from_hex("001b0006000400020003").value());
    EXPECT_EQ(client.wait_for<srtp_verified>(soon)->call, 3);
    const auto second =
        client.wait_for<playback_empty>(soon, [](const playback_empty& r) { return r.call == 2; });
    EXPECT_EQ(second->call, 2);
    EXPECT_EQ(client.kept().size(), 1U);
    EXPECT_EQ(std::get<playback_empty>(*client.receive(soon)).call, 1);
    EXPECT_FALSE(client.receive(milliseconds(0)));
}

TEST(control_client, opens_a_call_and_confirms_with_a_session_behind_it) {
    fake_process process;
    control_client client = connected_to(process);
    bytes both = encode(open_command{5, {}, {}, {}, {}});
    const bytes session = encode(session_command{});
    both.insert(both.end(), session.begin(), session.end());
    ASSERT_TRUE(client.send(both));
    const auto reply = client.wait_for<open_reply>(soon);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->rtp_port, 40010);
    EXPECT_TRUE(client.wait_for<heartbeat>(soon));
}

TEST(control_client, malformed_datagrams_arrive_as_undecodable) {
    fake_process process;
    control_client client = connected_to(process);
    process.report({0xFF});
    EXPECT_EQ(to_hex(client.wait_for<undecodable>(soon)->data), "ff");
}

TEST(control_client, nobody_there_silence_and_no_address) {
    control_client nobody = control_client::connect_udp("127.0.0.1", fake_process().port());
    EXPECT_FALSE(nobody.start_session(milliseconds(30)));
    EXPECT_TRUE(nobody.refused());
    fake_process process(fake_process::manners::silent);
    control_client ignored = control_client::connect_udp("127.0.0.1", process.port());
    EXPECT_FALSE(ignored.start_session(milliseconds(30)));
    EXPECT_FALSE(ignored.refused());
    EXPECT_FALSE(control_client::connect_udp("localhost", 5000).valid());
    EXPECT_FALSE(control_client().start_session(milliseconds(30)));
}

TEST(control_client, a_local_port_that_is_taken_is_said) {
    fake_process process;
    const control_client first = control_client::connect_udp("127.0.0.1", process.port());
    const control_client second =
        control_client::connect_udp("127.0.0.1", process.port(), first.local_port());
    EXPECT_FALSE(second.valid());
    EXPECT_NE(second.error().find("bind"), std::string::npos) << second.error();
}

TEST(control_client, waits_for_a_process_that_starts_late) {
    const std::uint16_t port = fake_process().port();
    control_client client = control_client::connect_udp("127.0.0.1", port);
    EXPECT_FALSE(client.start_session(milliseconds(10)));
    fake_process late(fake_process::manners::usual, port);
    EXPECT_TRUE(client.start_session(soon));
    EXPECT_FALSE(client.refused());
}

TEST(control_client, the_end_of_a_connection_is_no_empty_datagram) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
    control_client client(pair[0]);
    {
        control_client other(pair[1]);
        other.send(encode(session_command{}));
    }
    EXPECT_TRUE(client.wait_for<heartbeat>(soon));
    EXPECT_FALSE(client.receive(soon));
    EXPECT_TRUE(client.closed());
}

}  // namespace
