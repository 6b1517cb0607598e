// `fxsctl monitor`: what it prints, and that other runs and a real call control go through it.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/tools/fxsctl/child.h"
#include "tests/tools/fxsctl/fake_process.h"
#include "tools/protocol/control_client.h"

using namespace protocol;

namespace {

constexpr std::chrono::milliseconds soon{5000};

std::vector<std::string> fxsctl(fake_process& process, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {FXSCTL, "--port", std::to_string(process.port())});
    return arguments;
}

bytes hex(const char* text) {
    return from_hex(text).value();
}

TEST(monitor, every_report_is_one_json_line) {
    fake_process process;
    child monitor(fxsctl(process, {"--json", "monitor", "--count", "4"}));
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    process.report(hex("00130000"));                                         // not shown
    process.report(hex("00020012 000100020001 00020008 6f68ff0a22c3a421"));  // no UTF-8, quotes, line end
    process.report(hex("00180018 000400020003 0005000613887f000001 0020000412345678"));
    process.report(hex("ff00"));
    process.report(hex("00190000"));
    process.report(hex("00190000"));  // one too many
    EXPECT_EQ(monitor.wait(), 0);
    std::istringstream lines(monitor.out);
    std::vector<nlohmann::json> seen;
    for (std::string line; std::getline(lines, line);) {
        seen.push_back(nlohmann::json::parse(line));
    }
    ASSERT_EQ(seen.size(), 4U);
    EXPECT_EQ(seen[0]["text"], "oh\uFFFD\n\"\u00e4!");
    EXPECT_EQ(seen[1]["report"], "new-ssrc");
    EXPECT_EQ(seen[1]["ssrc"], "12345678");
    EXPECT_EQ(seen[1]["from"], "127.0.0.1:5000");
    EXPECT_EQ(seen[2]["report"], "undecodable");
    EXPECT_EQ(seen[2]["data"], "ff00");
    EXPECT_EQ(seen[3]["text"], "");
    EXPECT_EQ(seen[3]["time"].get<std::string>().size(), 24U);
}

TEST(monitor, filter_and_duration) {
    fake_process process;
    child monitor(fxsctl(process, {"monitor", "--filter", "heartbeat,driver", "--duration", "0.4"}));
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    process.report(hex("001c0006000400020005 00130000 00190001 41"));
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_NE(monitor.out.find("< heartbeat\n"), std::string::npos);
    EXPECT_NE(monitor.out.find("< driver text=A\n"), std::string::npos);
    EXPECT_EQ(monitor.out.find("playback"), std::string::npos);
}

TEST(monitor, other_runs_go_through_it_and_both_see_the_reports) {
    fake_process process;
    child monitor(fxsctl(process, {"monitor"}));
    ASSERT_TRUE(monitor.wait_for_text("other runs of fxsctl go through this one"));
    child open(fxsctl(process, {"open", "--call", "3"}));
    EXPECT_EQ(open.wait(), 0) << open.err;
    EXPECT_EQ(open.out, "open call=3 rtp_port=40006 rtcp_port=40007\n");
    EXPECT_TRUE(monitor.wait_for_text("> open call=3\n"));
    EXPECT_TRUE(monitor.wait_for_text("< open call=3 rtp_port=40006 rtcp_port=40007\n"));
    EXPECT_EQ(process.peers().size(), 1U) << "the session must have stayed with the monitor";

    child observer(fxsctl(process, {"monitor", "--count", "1"}));
    ASSERT_TRUE(observer.wait_for_text("through another monitor"));
    process.report(hex("001b0006000400020003"));
    EXPECT_EQ(observer.wait(), 0);
    EXPECT_NE(observer.out.find("srtp-verified call=3"), std::string::npos);
    EXPECT_TRUE(monitor.wait_for_text("srtp-verified call=3"));
}

TEST(monitor, a_killed_one_leaves_nothing_behind) {
    fake_process process;
    {
        child monitor(fxsctl(process, {"monitor"}));
        ASSERT_TRUE(monitor.wait_for_text("watching"));
        child waiting(fxsctl(process, {"monitor"}));
        ASSERT_TRUE(waiting.wait_for_text("through another monitor"));
        monitor.kill();
        EXPECT_EQ(waiting.wait(), 3);
        EXPECT_NE(waiting.err.find("has ended"), std::string::npos) << waiting.err;
    }
    child direct(fxsctl(process, {"--json", "ping"}));
    EXPECT_EQ(direct.wait(), 0) << direct.err;
    EXPECT_EQ(nlohmann::json::parse(direct.out)["through_monitor"], false);
    child next(fxsctl(process, {"monitor"}));
    EXPECT_TRUE(next.wait_for_text("other runs of fxsctl go through this one"));
}

TEST(monitor, a_local_port_goes_past_it) {
    fake_process process;
    child monitor(fxsctl(process, {"monitor"}));
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    const std::uint16_t port = fake_process().port();
    child direct(fxsctl(process, {"--local-port", std::to_string(port), "ping"}));
    EXPECT_EQ(direct.wait(), 0) << direct.err;
    EXPECT_TRUE(process.peers().contains(port));
}

TEST(monitor, relay_stands_in_for_the_process) {
    fake_process process;
    const std::uint16_t relay_port = fake_process().port();
    control_client call_control = control_client::connect_udp("127.0.0.1", relay_port);
    child monitor(fxsctl(process, {"monitor", "--relay", std::to_string(relay_port), "--relay-peer",
                                   std::to_string(call_control.local_port())}));
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    process.report(hex("001c0006000400020001"));  // arrives although call control has not sent anything yet
    EXPECT_TRUE(call_control.wait_for<playback_empty>(soon));
    ASSERT_TRUE(call_control.start_session(soon));
    ASSERT_TRUE(call_control.send(encode(open_command{4, {}, {}, {}, {}})));
    const auto reply = call_control.wait_for<open_reply>(soon);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->rtp_port, 40008);
    EXPECT_TRUE(monitor.wait_for_text("< open call=4 rtp_port=40008"));
    EXPECT_EQ(process.peers().size(), 1U);
    control_client next =
        control_client::connect_udp("127.0.0.1", relay_port);  // whoever spoke last is informed
    EXPECT_TRUE(next.start_session(soon));

    child taken(fxsctl(process, {"--local-port", std::to_string(fake_process().port()), "monitor", "--relay",
                                 std::to_string(relay_port)}));
    EXPECT_EQ(taken.wait(), 5);
}

TEST(monitor, takes_the_session_again_when_the_process_restarts) {
    auto process = std::make_unique<fake_process>();
    const std::uint16_t port = process->port();
    child monitor(fxsctl(*process, {"monitor", "--log-level", "7"}));
    ASSERT_TRUE(process->wait_for_commands(1));
    process.reset();
    ASSERT_TRUE(monitor.wait_for_text("no heartbeat for 3 s"));
    fake_process restarted(fake_process::manners::usual, port);
    ASSERT_TRUE(monitor.wait_for_text("the process is back"));
    ASSERT_TRUE(restarted.wait_for_commands(1));
    EXPECT_EQ(restarted.commands().at(0), "00070006000100020007");
}

}  // namespace
