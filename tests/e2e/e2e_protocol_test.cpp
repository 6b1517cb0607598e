#include <gtest/gtest.h>

#include "tests/e2e/media_process.h"
#include "tools/protocol/worked_datagrams.h"

using namespace std::chrono_literals;

namespace {

/// Waits for the datagram that the pattern describes; what else arrives is passed over.
bool answered(protocol::control_client& client, protocol::worked_datagram const& wanted) {
    auto const deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline)
        if (auto const datagram = client.receive_datagram(1s); datagram && wanted.matches(*datagram))
            return true;
    return false;
}

TEST(Protocol, EveryWorkedDatagramDoesWhatTheManualSays) {
    auto const datagrams = protocol::load_worked_datagrams(FXSMEDIA_SOURCE "/docs/control-protocol.md");
    telephones lines;
    controlled_process process(lines);
    int replies = 0;
    for (protocol::worked_datagram const& worked : datagrams) {
        if (!worked.is_command || worked.name.find("loopback") != std::string::npos)
            continue;
        process.send_datagram(worked.data);
        if (worked.reply.empty())
            continue;
        auto const reply = std::find_if(datagrams.begin(), datagrams.end(), [&](auto const& candidate) {
            return !candidate.is_command && candidate.name == worked.reply;
        });
        ASSERT_NE(reply, datagrams.end()) << worked.reply;
        EXPECT_TRUE(answered(process.client, *reply))
            << worked.name << " is not answered by " << worked.reply;
        replies++;
    }
    EXPECT_GE(replies, 3);
    EXPECT_TRUE(process.process.alive());
}

TEST(Protocol, LoopbackTestFindsItsPatternOnALineThatEchoes) {
    telephones lines;
    // The telephone says what it hears: the blocks come back two ticks later.
    lines.bank().line(0).tap_heard([&](fxsline::block const& block) {
        lines.bank().line(0).say(fxsline::speech::recording({block.begin(), block.end()}, false, "echo"));
    });
    controlled_process process(lines);
    process.send(protocol::loopback_test_command{});
    lines.wait_for_open(1);
    std::optional<protocol::loopback_result> result;
    for (int tick = 0; tick < 40 && !result; tick++) {
        lines.mount().advance();
        lines.mount().settle(1s);
        result = process.client.wait_for<protocol::loopback_result>(50ms);
    }
    ASSERT_TRUE(result.has_value());
    EXPECT_TRUE(result->found);
}

}  // namespace
