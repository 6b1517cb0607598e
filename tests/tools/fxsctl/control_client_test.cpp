#include "tools/protocol/control_client.h"

#include <gtest/gtest.h>

#include "tests/tools/fxsctl/fake_process.h"

using namespace protocol;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds soon{5000};  ///< longer than any answer takes

TEST(control_client, reports_that_nobody_asked_for_yet_are_kept_in_order) {
    fake_process process;
    control_client client = control_client::connect_udp("127.0.0.1", process.port());
    ASSERT_TRUE(client.start_session(soon));
    for (char const* report : {"001c0006000400020001 001c0006000400020002", "ff", "001b0006000400020003"})
        process.report(report);
    EXPECT_EQ(client.wait_for<srtp_verified>(soon)->call, 3);
    auto const second =
        client.wait_for<playback_empty>(soon, [](playback_empty const& r) { return r.call == 2; });
    EXPECT_EQ(second->call, 2);
    EXPECT_EQ(client.kept().size(), 2U);
    EXPECT_EQ(std::get<playback_empty>(*client.receive(soon)).call, 1);
    EXPECT_EQ(to_hex(client.wait_for<undecodable>(soon)->data), "ff");
    EXPECT_FALSE(client.receive(milliseconds(0)));
}

TEST(control_client, waits_for_a_process_that_starts_late) {
    std::uint16_t const port = fake_process().port();
    control_client client = control_client::connect_udp("127.0.0.1", port);
    EXPECT_FALSE(client.start_session(milliseconds(30)));
    EXPECT_TRUE(client.refused());
    EXPECT_FALSE(control_client::connect_udp("localhost", port).valid());
    fake_process late(port);
    EXPECT_TRUE(client.start_session(soon));
    EXPECT_FALSE(client.refused());
}

}  // namespace
