// `fxsctl monitor` with encrypted reports: keys come from the commands that pass, the summary counts, keys stay hidden.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/tools/fxsctl/child.h"
#include "tests/tools/fxsctl/fake_process.h"
#include "tools/protocol/tags.h"
#include "tools/protocol/tlv.h"

using namespace protocol;

namespace {

const std::string key = "e1f97a0d3e018be0d64fa32c06de41390ec675ad498afeebb6960b3aabe6";

// The first two packets of compounds.h, protected by libsrtp2 with that key.
const char* const protected_hex =
    "81c8000c1111111141d7db46c199c52390f03a515a81ccc72b7415ca716170e69a07ff7561237775ac824dd4a813a7ec26"
    "3db88890d32911500775d254925c10d75f5467800000014712de50449eeb1a04ca";

bytes copy_report(std::uint16_t field_tag, const bytes& packet) {
    bytes fields;
    append_short(fields, field::call, 1);
    append_tlv(fields, field::call_id, to_bytes("id"));
    append_tlv(fields, field_tag, packet);
    bytes report;
    append_tlv(report, report_tag::rtcp_copy, fields);
    return report;
}

std::vector<nlohmann::json> lines_of(const std::string& text) {
    std::istringstream in(text);
    std::vector<nlohmann::json> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

TEST(monitor_rtcp, decrypts_with_the_keys_that_pass_and_sums_up) {
    fake_process process;
    const std::vector<std::string> fxsctl{FXSCTL, "--json", "--port", std::to_string(process.port())};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), fxsctl.begin(), fxsctl.end());
        return more;
    };
    child monitor(with({"monitor", "--summary", "--count", "4", "--filter", "rtcp,command,log"}));
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    child media(with({"media", "-c", "1", "--srtp-rx-key", key}));
    ASSERT_EQ(media.wait(), 0) << media.err;
    process.report(from_hex("0002001a 000100020005 00020010 53525450205478 3d616263642052783d").value());
    process.report(copy_report(field::rtcp_received, from_hex(protected_hex).value()));
    process.report(copy_report(field::rtcp_sent, from_hex("80c90001 22222222").value()));
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_EQ(monitor.out.find(key), std::string::npos);
    const std::vector<nlohmann::json> lines = lines_of(monitor.out);
    ASSERT_EQ(lines.size(), 5U) << monitor.out;
    EXPECT_EQ(lines[0]["srtp_rx_key_bytes"], 30);
    EXPECT_EQ(lines[1]["text"], "SRTP Tx=(2_bytes) Rx=(0_bytes)");
    EXPECT_EQ(lines[2]["srtcp"], "decrypted");
    EXPECT_EQ(lines[2]["packets"], "SR SDES");
    EXPECT_EQ(lines[2]["decoded"][0]["blocks"][0]["loss_percent"], 25.0);
    EXPECT_EQ(lines[3]["decoded"][0]["ssrc"], "22222222");
    EXPECT_EQ(lines[4]["result"], "quality");
    EXPECT_EQ(lines[4]["peer_sent_packets"], 100);

    const std::string path = testing::TempDir() + "fxsctl_quality_" + std::to_string(getpid());
    std::ofstream(path) << monitor.out << "{\"report\":\"rt";  // the last line of a monitor that was killed
    child again({FXSCTL, "--json", "quality", path});
    EXPECT_EQ(again.wait(), 0);
    std::remove(path.c_str());
    EXPECT_EQ(lines_of(again.out).at(0), lines[4]);
    EXPECT_NE(again.err.find("skipped 1 lines"), std::string::npos) << again.err;
}

TEST(monitor_rtcp, a_signal_ends_it_with_the_summary) {
    fake_process process;
    child monitor({FXSCTL, "--port", std::to_string(process.port()), "monitor", "--summary", "--quiet"});
    ASSERT_TRUE(monitor.wait_for_text("watching"));
    process.report(copy_report(field::rtcp_sent, from_hex("80c90001 22222222").value()));
    monitor.terminate();
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_NE(monitor.out.find("reports_sent                          1\n"), std::string::npos)
        << monitor.out;
}

}  // namespace
