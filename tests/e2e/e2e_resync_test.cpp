// Broken commands that mute the process for call control, and `fxsctl resync`, which makes it answer again.

#include <gtest/gtest.h>

#include "tests/e2e/media_process.h"
#include "tests/tools/fxsctl/run_fxsctl.h"

using namespace std::chrono_literals;

namespace {

constexpr int answered = 0, unanswered = 3;

struct resync : testing::Test {
    controlled_process process{{}};

    outcome fxsctl(std::string const& subcommand, int timeout_ms = 1000) {
        return run_fxsctl("--timeout " + std::to_string(timeout_ms) + " " + subcommand, process.port);
    }
};

TEST_F(resync, cures_what_mutes_the_process) {
    for (char const* const poison : {
             "0000ffff",
             "0013ffff",  // elements that claim 65,535 bytes, one of them a session command
             "00 0000ffff",
             "0000 0013ffff",  // the same off an element's beginning
             "000000 0000ffff", "0013ffff 0000ffff 0013ffff 0000ffff", "00", "0013",
             "001310",         // no whole header
             "00100008 0004",  // a command that was cut off
         }) {
        SCOPED_TRACE(poison);
        process.send(protocol::from_hex(poison).value());
        outcome const muted = fxsctl("ping", 100);
        EXPECT_EQ(muted.exit_code, unanswered);
        EXPECT_NE(muted.err.find("fxsctl resync"), std::string::npos) << muted.err;
        outcome const cure = fxsctl("resync");
        EXPECT_EQ(cure.exit_code, answered) << cure.err;
        EXPECT_NE(cure.out.find("was_muted=yes"), std::string::npos) << cure.out;
        EXPECT_EQ(fxsctl("ping").exit_code, answered);
    }
}

TEST_F(resync, sees_through_heartbeats) {
    process.send(protocol::from_hex("001300").value());  // the next command's first byte makes this a session command
    outcome const cure = fxsctl("resync");
    EXPECT_EQ(cure.exit_code, answered) << cure.err;
    EXPECT_NE(cure.out.find("was_muted=yes"), std::string::npos) << cure.out;
    ASSERT_TRUE(process.client.start_session(20s));
    process.open(0);  // which fails without a reply
}

TEST_F(resync, the_broken_command_is_not_carried_out) {
    std::uint16_t const rtp_port = process.open(0).rtp_port;
    process.send(protocol::from_hex("0004ffff 000400020000").value());  // end call 0
    EXPECT_EQ(fxsctl("resync").exit_code, answered);
    ASSERT_TRUE(process.client.start_session(20s));
    process.send(protocol::encode(
        protocol::open_command{.call = 1, .port_min = rtp_port, .port_max = static_cast<std::uint16_t>(rtp_port + 2)}));
    auto const reply = process.client.wait_for<protocol::open_reply>(20s);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->rtp_port, 0) << "call 0 has left its ports";
}

TEST_F(resync, leaves_a_process_in_order_alone) {
    outcome const untouched = fxsctl("resync");
    EXPECT_EQ(untouched.exit_code, answered);
    EXPECT_NE(untouched.out.find("was_muted=no"), std::string::npos) << untouched.out;

    kill(process.process.pid(), SIGSTOP);
    EXPECT_EQ(fxsctl("resync", 100).exit_code, unanswered);
    kill(process.process.pid(), SIGCONT);
    EXPECT_EQ(fxsctl("ping", 20000).exit_code, answered);
}

}  // namespace
