#include <gtest/gtest.h>

#include "tests/e2e/media_process.h"
#include "tools/protocol/worked_datagrams.h"

using namespace std::chrono_literals;

namespace {

/// Waits for the datagram that the pattern describes; what else arrives is passed over.
bool answered(protocol::control_client& client, protocol::worked_datagram const& wanted) {
    auto const deadline = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < deadline) {
        auto const datagram = client.receive_datagram(1s);
        if (datagram && wanted.matches(*datagram))
            return true;
    }
    return false;
}

TEST(protocol, every_worked_datagram_does_what_the_manual_says) {
    auto const datagrams = protocol::load_worked_datagrams(FXSMEDIA_SOURCE "/docs/control-protocol.md");
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    int replies = 0;
    for (protocol::worked_datagram const& worked : datagrams) {
        if (!worked.is_command || worked.name.find("loopback") != std::string::npos)
            continue;
        process.send(worked.data);
        if (worked.reply.empty())
            continue;
        auto const reply = std::find_if(datagrams.begin(), datagrams.end(), [&](auto const& candidate) {
            return !candidate.is_command && candidate.name == worked.reply;
        });
        ASSERT_NE(reply, datagrams.end()) << worked.reply;
        EXPECT_TRUE(answered(process.client, *reply)) << worked.name << " is not answered by " << worked.reply;
        replies++;
    }
    EXPECT_GE(replies, 3);
    EXPECT_TRUE(process.process.alive());
}

TEST(protocol, commands_may_be_cut_anywhere) {
    controlled_process process({});
    protocol::bytes stream;
    for (std::uint16_t call = 0; call < 3; call++) {
        protocol::bytes const command = protocol::encode(protocol::open_command{.call = call});
        stream.insert(stream.end(), command.begin(), command.end());
    }
    for (std::size_t cut = 1; cut < stream.size(); cut++) {
        protocol::byte_view const all(stream);
        process.client.send(all.first(cut));
        process.client.send(all.subspan(cut));
        for (std::uint16_t call = 0; call < 3; call++)
            ASSERT_TRUE(process.client.wait_for<protocol::open_reply>(
                20s, [&](protocol::open_reply const& reply) { return reply.call == call && reply.rtp_port != 0; }))
                << "cut at " << cut;
    }
}

TEST(protocol, loopback_test_finds_its_pattern_on_a_line_that_echoes) {
    telephones lines({});
    // The telephone says what it hears: the blocks come back two ticks later.
    lines.bank().line(0).tap_heard([&](fxsline::block const& block) {
        lines.bank().line(0).say(fxsline::speech::recording({block.begin(), block.end()}, false, "echo"));
    });
    controlled_process process({"--tdm", lines.tdm_path()});
    process.send(protocol::encode(protocol::loopback_test_command{}));
    ASSERT_TRUE(lines.wait_for_open(1));
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
