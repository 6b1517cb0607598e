// `fxsctl monitor`: what it prints (encrypted RTCP by the keys that pass, which stay hidden), what it sums up, and that
// other runs and a real call control go through it.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/tools/fxsctl/fxsctl.h"
#include "tools/protocol/control_client.h"

using namespace protocol;

namespace {

constexpr std::chrono::milliseconds soon{5000};

std::string const passed_key = "e1f97a0d3e018be0d64fa32c06de41390ec675ad498afeebb6960b3aabe6";

/// The first two packets of the compound in tests/tools/rtcp/rtcp_view_test.cpp, protected by libsrtp2 with that key,
/// as a copy of call 1 with identifier "id".
char const* const received_copy =
    "000e0062 000400020001 001600026964 00090052"
    "81c8000c1111111141d7db46c199c52390f03a515a81ccc72b7415ca716170e69a07ff7561237775ac824dd4a813a7ec26"
    "3db88890d32911500775d254925c10d75f5467800000014712de50449eeb1a04ca";
char const* const sent_copy = "000e0018 000400020001 001600026964 000a0008 80c90001 22222222";

/// A part of each line shown.
std::string const shown = R"json(
{"command": "media", "srtp_rx_key_bytes": 30}
{"text": "SRTP Tx=(2_bytes) Rx=(0_bytes)"}
{"srtcp": "decrypted", "packets": "SR SDES"}
{"text": "oh\uFFFD\n\"\u00e4!"}
{"report": "new-ssrc", "ssrc": "12345678", "from": "127.0.0.1:5000"}
{"report": "undecodable", "data": "ff00"}
{"text": ""}
{"report": "rtcp"}
{"result": "quality", "peer_sent_packets": 100, "reports_sent": 1}
)json";

TEST(monitor, shows_what_passes_as_json_lines_and_sums_up) {
    fake_process process;
    child monitor = start_fxsctl("--json monitor --summary --count 8 --filter rtcp,command,log,new-ssrc,undecodable",
                                 process.port());
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    ASSERT_EQ(run_fxsctl("media -c 1 --srtp-rx-key " + passed_key, process.port()).exit_code, 0);
    for (char const* report : {"0002001a 000100020005 00020010 53525450205478 3d616263642052783d", received_copy,
                               "001c0006000400020005 00130000 00190001 41",        // filtered out
                               "00020012 000100020001 00020008 6f68ff0a22c3a421",  // no UTF-8, quotes, line end
                               "00180018 000400020003 0005000613887f000001 0020000412345678", "ff00",
                               "0002000a 000100020005 00020000", sent_copy, "ff01"})  // one too many
        process.report(report);
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_EQ(monitor.out.find(passed_key), std::string::npos);
    std::vector<nlohmann::json> seen;
    for (std::string const& line : split(monitor.out, '\n'))
        seen.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(seen.size(), 9U) << monitor.out;
    EXPECT_EQ(seen[0]["time"].get<std::string>().size(), 24U);
    std::vector<std::string> const expected = split(shown.substr(1), '\n');
    for (std::size_t i = 0; i < seen.size(); i++) {
        nlohmann::json all = seen[i];
        all.merge_patch(nlohmann::json::parse(expected.at(i)));
        EXPECT_EQ(all, seen[i]);
    }
    EXPECT_EQ(seen[2]["decoded"][0]["blocks"][0]["loss_percent"], 25.0);
    EXPECT_EQ(seen[7]["decoded"][0]["ssrc"], "22222222");

    std::string const path = testing::TempDir() + "fxsctl_quality_" + std::to_string(getpid());
    std::ofstream(path) << monitor.out << "{\"report\":\"rt";  // the last line of a monitor that was killed
    outcome const again = run_fxsctl("--json quality " + path);
    std::remove(path.c_str());
    EXPECT_EQ(nlohmann::json::parse(again.out), seen[8]);
    EXPECT_NE(again.err.find("skipped 1 lines"), std::string::npos) << again.err;
}

TEST(monitor, time_or_a_signal_ends_it_with_the_summary) {
    fake_process process;
    EXPECT_EQ(run_fxsctl("monitor --duration 0.1", process.port()).exit_code, 0);
    child monitor = start_fxsctl("monitor --summary --quiet", process.port());
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    process.report(sent_copy);
    EXPECT_EQ(monitor.end(SIGTERM), 0);
    EXPECT_NE(monitor.out.find("reports_sent                          1\n"), std::string::npos) << monitor.out;
}

TEST(monitor, shares_the_session_and_leaves_nothing_behind) {
    fake_process process;
    std::uint16_t const port = fake_process().port(), own_port = fake_process().port();
    control_client call_control = control_client::connect_udp("127.0.0.1", port);
    std::string const relay = "monitor --relay " + std::to_string(port);
    child monitor = start_fxsctl(relay + " --relay-peer " + std::to_string(call_control.local_port()), process.port());
    ASSERT_TRUE(monitor.wait_for_text("other runs of fxsctl go through this one"));
    child observer = start_fxsctl("monitor", process.port());
    ASSERT_TRUE(observer.wait_for_text("through another monitor"));
    process.report("001c0006000400020001");
    EXPECT_TRUE(call_control.wait_for<playback_empty>(soon)) << "although it has not sent anything yet";
    EXPECT_TRUE(monitor.wait_for_text("playback-empty call=1") && observer.wait_for_text("playback-empty call=1"));

    EXPECT_EQ(run_fxsctl("open --call 3", process.port()).out, "open call=3 rtp_port=40006 rtcp_port=40007\n");
    ASSERT_TRUE(call_control.start_session(soon));
    ASSERT_TRUE(call_control.send(encode(open_command{4, {}, {}, {}, {}})));
    EXPECT_TRUE(call_control.wait_for<open_reply>(soon, [](auto const& reply) { return reply.rtp_port == 40008; }));
    for (char const* const line : {"> open call=3\n", "< open call=3 rtp_port=40006", "< open call=4 rtp_port=40008"})
        EXPECT_TRUE(monitor.wait_for_text(line)) << line;
    EXPECT_TRUE(control_client::connect_udp("127.0.0.1", port).start_session(soon)) << "the last sender is informed";
    EXPECT_EQ(process.peers().size(), 1U) << "the session must have stayed with the monitor";

    EXPECT_EQ(run_fxsctl("--local-port " + std::to_string(own_port) + " " + relay, process.port()).exit_code, 5);
    EXPECT_TRUE(process.peers().contains(own_port)) << "a local port goes past the monitor";
    monitor.end(SIGKILL);
    EXPECT_EQ(observer.wait(), 3);
    EXPECT_NE(observer.err.find("has ended"), std::string::npos) << observer.err;
    outcome const direct = run_fxsctl("--json ping", process.port());
    EXPECT_NE(direct.out.find("\"through_monitor\":false"), std::string::npos) << direct.out;
    EXPECT_TRUE(start_fxsctl("monitor", process.port()).wait_for_text("other runs of fxsctl go through this one"));
}

TEST(monitor, takes_the_session_again_when_the_process_restarts) {
    auto process = std::make_unique<fake_process>();
    std::uint16_t const port = process->port();
    child monitor = start_fxsctl("monitor --log-level 7", port);
    ASSERT_EQ(process->commands(1).size(), 1U);
    process.reset();
    ASSERT_TRUE(monitor.wait_for_text("no heartbeat for 3 s"));
    fake_process restarted(port);
    ASSERT_TRUE(monitor.wait_for_text("the process is back"));
    EXPECT_EQ(restarted.commands(1).at(0), "00070006000100020007");
}

}  // namespace
