// `fxsctl monitor`: what it prints, and that other runs and a real call control go through it.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/tools/fxsctl/fxsctl.h"
#include "tools/protocol/control_client.h"

using namespace protocol;

namespace {

constexpr std::chrono::milliseconds soon{5000};

TEST(monitor, every_report_is_one_json_line) {
    fake_process process;
    child monitor = start_fxsctl("--json monitor --count 4", &process);
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    for (char const* report :
         {"00130000",                                         // not shown
          "00020012 000100020001 00020008 6f68ff0a22c3a421",  // no UTF-8, quotes, line end
          "00180018 000400020003 0005000613887f000001 0020000412345678", "ff00", "00190000",
          "00190000"})  // one too many
        process.report(report);
    EXPECT_EQ(monitor.wait(), 0);
    std::vector<nlohmann::json> seen;
    for (std::string const& line : split(monitor.out, '\n')) {
        seen.push_back(nlohmann::json::parse(line));
        EXPECT_EQ(seen.back()["time"].get<std::string>().size(), 24U);
    }
    ASSERT_EQ(seen.size(), 4U);
    EXPECT_EQ(seen[0]["text"], "oh\uFFFD\n\"\u00e4!");
    EXPECT_EQ(seen[1]["report"], "new-ssrc");
    EXPECT_EQ(seen[1]["ssrc"], "12345678");
    EXPECT_EQ(seen[1]["from"], "127.0.0.1:5000");
    EXPECT_EQ(seen[2]["report"], "undecodable");
    EXPECT_EQ(seen[2]["data"], "ff00");
    EXPECT_EQ(seen[3]["text"], "");
}

TEST(monitor, shares_the_session_and_leaves_nothing_behind) {
    fake_process process;
    std::uint16_t const port = fake_process().port(), own_port = fake_process().port();
    control_client call_control = control_client::connect_udp("127.0.0.1", port);
    std::string const relay = "monitor --relay " + std::to_string(port);
    child monitor =
        start_fxsctl(relay + " --relay-peer " + std::to_string(call_control.local_port()), &process);
    ASSERT_TRUE(monitor.wait_for_text("other runs of fxsctl go through this one"));
    child observer = start_fxsctl("monitor", &process);
    ASSERT_TRUE(observer.wait_for_text("through another monitor"));
    process.report("001c0006000400020001");
    EXPECT_TRUE(call_control.wait_for<playback_empty>(soon)) << "although it has not sent anything yet";
    EXPECT_TRUE(monitor.wait_for_text("playback-empty call=1") &&
                observer.wait_for_text("playback-empty call=1"));

    EXPECT_EQ(run_fxsctl("open --call 3", &process).out, "open call=3 rtp_port=40006 rtcp_port=40007\n");
    ASSERT_TRUE(call_control.start_session(soon));
    ASSERT_TRUE(call_control.send(encode(open_command{4, {}, {}, {}, {}})));
    EXPECT_TRUE(
        call_control.wait_for<open_reply>(soon, [](auto const& reply) { return reply.rtp_port == 40008; }));
    for (char const* const line :
         {"> open call=3\n", "< open call=3 rtp_port=40006", "< open call=4 rtp_port=40008"})
        EXPECT_TRUE(monitor.wait_for_text(line)) << line;
    EXPECT_TRUE(control_client::connect_udp("127.0.0.1", port).start_session(soon))
        << "the last sender is informed";
    EXPECT_EQ(process.peers().size(), 1U) << "the session must have stayed with the monitor";

    EXPECT_EQ(run_fxsctl("--local-port " + std::to_string(own_port) + " " + relay, &process).exit_code, 5);
    EXPECT_TRUE(process.peers().contains(own_port)) << "a local port goes past the monitor";
    monitor.end(SIGKILL);
    EXPECT_EQ(observer.wait(), 3);
    EXPECT_NE(observer.err.find("has ended"), std::string::npos) << observer.err;
    outcome const direct = run_fxsctl("--json ping", &process);
    EXPECT_NE(direct.out.find("\"through_monitor\":false"), std::string::npos) << direct.out;
    EXPECT_TRUE(start_fxsctl("monitor", &process).wait_for_text("other runs of fxsctl go through this one"));
}

TEST(monitor, takes_the_session_again_when_the_process_restarts) {
    auto process = std::make_unique<fake_process>();
    std::uint16_t const port = process->port();
    child monitor = start_fxsctl("monitor --log-level 7", process.get());
    ASSERT_TRUE(process->wait_for_commands(1));
    process.reset();
    ASSERT_TRUE(monitor.wait_for_text("no heartbeat for 3 s"));
    fake_process restarted(port);
    ASSERT_TRUE(monitor.wait_for_text("the process is back"));
    ASSERT_TRUE(restarted.wait_for_commands(1));
    EXPECT_EQ(restarted.commands().at(0), "00070006000100020007");
}

}  // namespace
