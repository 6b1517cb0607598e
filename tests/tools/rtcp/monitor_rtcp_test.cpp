// `fxsctl monitor` with encrypted reports: keys come from the commands that pass, the summary counts, keys stay hidden.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/tools/fxsctl/fxsctl.h"

using namespace protocol;

namespace {

std::string const key = "e1f97a0d3e018be0d64fa32c06de41390ec675ad498afeebb6960b3aabe6";

/// The first two packets of compounds.h, protected by libsrtp2 with that key, as a copy of call 1 with identifier "id".
char const* const received_copy =
    "000e0062 000400020001 001600026964 00090052"
    "81c8000c1111111141d7db46c199c52390f03a515a81ccc72b7415ca716170e69a07ff7561237775ac824dd4a813a7ec26"
    "3db88890d32911500775d254925c10d75f5467800000014712de50449eeb1a04ca";
char const* const sent_copy = "000e0018 000400020001 001600026964 000a0008 80c90001 22222222";

TEST(monitor_rtcp, decrypts_with_the_keys_that_pass_and_sums_up) {
    fake_process process;
    child monitor = start_fxsctl("--json monitor --summary --count 4 --filter rtcp,command,log", &process);
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    ASSERT_EQ(run_fxsctl("media -c 1 --srtp-rx-key " + key, &process).exit_code, 0);
    for (char const* report :
         {"0002001a 000100020005 00020010 53525450205478 3d616263642052783d", received_copy,
          "001c0006000400020005 00130000 00190001 41", sent_copy})  // the third is filtered out
        process.report(report);
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_EQ(monitor.out.find(key), std::string::npos);
    std::vector<nlohmann::json> lines;
    for (std::string const& line : split(monitor.out, '\n'))
        lines.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(lines.size(), 5U) << monitor.out;
    EXPECT_EQ(lines[0]["srtp_rx_key_bytes"], 30);
    EXPECT_EQ(lines[1]["text"], "SRTP Tx=(2_bytes) Rx=(0_bytes)");
    EXPECT_EQ(lines[2]["srtcp"], "decrypted");
    EXPECT_EQ(lines[2]["packets"], "SR SDES");
    EXPECT_EQ(lines[2]["decoded"][0]["blocks"][0]["loss_percent"], 25.0);
    EXPECT_EQ(lines[3]["decoded"][0]["ssrc"], "22222222");
    EXPECT_EQ(lines[4]["result"], "quality");
    EXPECT_EQ(lines[4]["peer_sent_packets"], 100);

    std::string const path = testing::TempDir() + "fxsctl_quality_" + std::to_string(getpid());
    std::ofstream(path) << monitor.out << "{\"report\":\"rt";  // the last line of a monitor that was killed
    outcome const again = run_fxsctl("--json quality " + path);
    std::remove(path.c_str());
    EXPECT_EQ(nlohmann::json::parse(again.out), lines[4]);
    EXPECT_NE(again.err.find("skipped 1 lines"), std::string::npos) << again.err;
}

TEST(monitor_rtcp, time_or_a_signal_ends_it_with_the_summary) {
    fake_process process;
    EXPECT_EQ(run_fxsctl("monitor --duration 0.1", &process).exit_code, 0);
    child monitor = start_fxsctl("monitor --summary --quiet", &process);
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    process.report(sent_copy);
    EXPECT_EQ(monitor.end(SIGTERM), 0);
    EXPECT_NE(monitor.out.find("reports_sent                          1\n"), std::string::npos)
        << monitor.out;
}

}  // namespace
