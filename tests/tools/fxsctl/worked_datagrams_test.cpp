// The page of the protocol against the programs: every worked datagram must be what the builders make or what the
// parser understands, and the page must show every message there is.

#include "tools/protocol/worked_datagrams.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>

#include "tools/protocol/commands.h"
#include "tools/protocol/description.h"
#include "tools/protocol/tlv.h"

using namespace protocol;

namespace {

const std::string demo_id = "demo-0";

bytes joined(bytes first, const bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

bytes key_ending_in(std::uint8_t last) {
    bytes key = from_hex("e1f97a0d3e018be0d64fa32c06de4139 0ec675ad498afeebb6960b3aabe6").value();
    key[15] = last;
    return key;
}

bytes stun_request() {
    return joined(from_hex("000100002112a442").value(), to_bytes("0123456789ab"));
}

std::map<std::string, bytes> built_commands() {
    const std::optional<address> rtp = parse_address("127.0.0.1:20000");
    media_command media{
        0, codec_choice{2, 8}, 101, {{2, 8}}, 20, bytes{0x12, 0x34, 0x56, 0x78}, rtp, {}, {}, {}, {}, {}, {},
        {}};
    media.rtcp_dest = parse_address("127.0.0.1:20001");
    media_command ipv6;
    ipv6.call = 0;
    ipv6.rtp_dest = parse_address("[::1]:20002");
    media_command xr;
    xr.call = 0;
    xr.xr_mode = "rcvr-rtt stat-summary voip-metrics";
    media_command srtp;
    srtp.call = 0;
    srtp.srtp_rx_key = key_ending_in(0x39);
    srtp.srtp_tx_key = key_ending_in(0x3a);
    srtp.srtp_tag_bytes = 10;
    return {{"end-and-confirm", joined(encode(end_command{7}), encode(session_command{}))},
            {"session", encode(session_command{})},
            {"open", encode(open_command{0, 16400, 16402, 184, demo_id})},
            {"open-anywhere", encode(open_command{1, {}, {}, {}, {}})},
            {"media", encode(media)},
            {"media-ipv6", encode(ipv6)},
            {"media-xr", encode(xr)},
            {"media-srtp", encode(srtp)},
            {"tdm", encode(tdm_command{0, 0})},
            {"tdm-off", encode(tdm_command{0, 4})},
            {"end", encode(end_command{0})},
            {"dtmf", encode(dtmf_command{0, 5})},
            {"play", encode(playback_command{0, 1, 4})},
            {"play-stop", encode(playback_command{0, 0, 0})},
            {"tunnel", encode(tunnel_command{0, rtp, stun_request(), {}, false})},
            {"log-level", encode(log_level_command{1})},
            {"ntp-offset", encode(ntp_offset_command{-5})},
            {"led", encode(led_command{1})},
            {"led-off", encode(led_command{0})},
            {"reset-base", encode(reset_base_command{3})},
            {"signal", encode(signal_command{{to_bytes("hello")}})},
            {"loopback-test", encode(loopback_test_command{})},
            {"dump", encode(dump_command{})}};
}

// A short text for any field, so that whole messages can be compared at a glance.
std::string summary(const description& message) {
    std::string text = message.name;
    for (const described_field& one : message.fields) {
        text += " " + one.name + "=";
        std::visit(
            [&](const auto& value) {
                if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
                    text += value;
                } else {
                    text += std::to_string(value);
                }
            },
            one.value);
    }
    return text;
}

const std::map<std::string, std::string> read_reports{
    {"session", "heartbeat"},
    {"open", "open call=0 rtp_port=16400 rtcp_port=16401"},
    {"open-anywhere", "open call=1 rtp_port=0 rtcp_port=0"},
    {"reset-base", "reset-base command=3 result=0"},
    {"loopback-test", "loopback found=1"},
    {"log-ready", "log level=1 text=Media Process Ready"},
    {"signal", "signal data=68656c6c6f"},
    {"rtcp-received", "rtcp call=0 call_id=demo-0 direction=received packets=RR data=80c9000112345678"},
    {"rtcp-sent", "rtcp call=0 call_id=demo-0 direction=sent packets=SR SDES data=81c8000812345678" +
                      std::string(56, '0') + "81ca000312345678010456454c4b0000"},
    {"tunnel",
     "tunnel call=0 from=127.0.0.1:20000 rtcp=0 tcp=0 data=000100002112a442303132333435363738396162"},
    {"zrtp", "zrtp call=0 from=127.0.0.1:20000 data=100000015a5254501234567800000000"},
    {"new-ssrc", "new-ssrc call=0 from=127.0.0.1:20000 ssrc=12345678"},
    {"driver-line", "driver text=hook 1 off"},
    {"srtp-verified", "srtp-verified call=0"},
    {"playback-empty", "playback-empty call=0"}};

TEST(protocol_page, worked_datagrams_are_what_is_built_and_understood) {
    const std::map<std::string, bytes> built = built_commands();
    std::set<std::string> seen_commands;
    std::set<std::string> seen_reports;
    for (const worked_datagram& worked : load_worked_datagrams(PROTOCOL_PAGE)) {
        SCOPED_TRACE(worked.name);
        if (worked.is_command) {
            EXPECT_TRUE(seen_commands.insert(worked.name).second) << "twice in the page";
            ASSERT_TRUE(built.contains(worked.name));
            EXPECT_EQ(to_hex(worked.data), to_hex(built.at(worked.name)));
            EXPECT_TRUE(worked.reply.empty() || read_reports.contains(worked.reply));
        } else {
            EXPECT_TRUE(seen_reports.insert(worked.name).second) << "twice in the page";
            ASSERT_TRUE(read_reports.contains(worked.name));
            const std::vector<report> reports = parse_reports(worked.data);
            ASSERT_EQ(reports.size(), 1U);
            EXPECT_EQ(summary(describe(reports.front())), read_reports.at(worked.name));
        }
    }
    EXPECT_EQ(seen_commands.size(), built.size());
    EXPECT_EQ(seen_reports.size(), read_reports.size());
}

TEST(protocol_page, described_commands) {
    const std::map<std::string, std::string> expected{
        {"open", "open call=0 port_min=16400 port_max=16402 tos=184 call_id=demo-0"},
        {"media",
         "media call=0 send=8=pcma event_pt=101 map=8=pcma ptime=20 ssrc=12345678 rtp=127.0.0.1:20000 "
         "rtcp=127.0.0.1:20001"},
        {"media-ipv6", "media call=0 rtp=[::1]:20002"},
        {"media-srtp", "media call=0 srtp_rx_key_bytes=30 srtp_tx_key_bytes=30 srtp_tag=10"},
        {"play", "play call=0 kind=4 set=1"},
        {"ntp-offset", "ntp-offset seconds=-5"},
        {"end-and-confirm", "end call=7"}};
    for (const auto& [name, text] : expected) {
        EXPECT_EQ(summary(describe_commands(built_commands().at(name)).at(0)), text);
    }
}

struct page {
    explicit page(const std::string& text) { std::ofstream(path) << text; }
    ~page() { std::remove(path.c_str()); }
    std::string path = testing::TempDir() + "page_" + std::to_string(getpid()) + ".md";
};

TEST(protocol_page, malformed_pages_fail_loudly) {
    for (const char* text : {"", "no blocks", "```hex a command\n00 1\n```\n", "```hex a command\n0g\n```\n",
                             "```hex a neither\n00\n```\n", "```hex a command foo=1\n00\n```\n",
                             "```hex a command\n```\n", "```hex a command\n00\n"}) {
        const page written(text);
        EXPECT_THROW(load_worked_datagrams(written.path), std::runtime_error) << text;
    }
    EXPECT_THROW(load_worked_datagrams("/nonexistent"), std::runtime_error);
}

TEST(protocol_page, wildcards_match_any_byte_of_the_same_length) {
    const page written("```hex a report\n01 ??  # remark\n```\n");
    const worked_datagram worked = load_worked_datagrams(written.path).at(0);
    EXPECT_TRUE(worked.matches(bytes{1, 200}));
    EXPECT_FALSE(worked.matches(bytes{2, 200}));
    EXPECT_FALSE(worked.matches(bytes{1}));
    EXPECT_FALSE(worked.matches(bytes{1, 2, 3}));
}

}  // namespace
