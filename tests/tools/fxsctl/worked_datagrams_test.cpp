// The page of the protocol against the programs: every worked report must be what the parser understands, and the page
// must show every report there is. What fxsctl sends is held to the page in arguments_test.cpp.

#include "tools/protocol/worked_datagrams.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>

#include "tests/tools/fxsctl/summary.h"

using namespace protocol;

namespace {

/// The reports, all of them, and the commands that say most.
std::map<std::string, std::string> const understood{
    {"session report", "heartbeat"},
    {"open report", "open call=0 rtp_port=16400 rtcp_port=16401"},
    {"open-anywhere report", "open call=1 rtp_port=0 rtcp_port=0"},
    {"reset-base report", "reset-base command=3 result=0"},
    {"loopback-test report", "loopback found=1"},
    {"log-ready report", "log level=1 text=Media Process Ready"},
    {"signal report", "signal data=68656c6c6f"},
    {"rtcp-received report",
     "rtcp call=0 call_id=demo-0 direction=received packets=RR data=80c9000112345678"},
    {"rtcp-sent report", "rtcp call=0 call_id=demo-0 direction=sent packets=SR SDES data=81c8000812345678" +
                             std::string(56, '0') + "81ca000312345678010456454c4b0000"},
    {"tunnel report",
     "tunnel call=0 from=127.0.0.1:20000 rtcp=0 tcp=0 data=000100002112a442303132333435363738396162"},
    {"zrtp report", "zrtp call=0 from=127.0.0.1:20000 data=100000015a5254501234567800000000"},
    {"new-ssrc report", "new-ssrc call=0 from=127.0.0.1:20000 ssrc=12345678"},
    {"driver-line report", "driver text=hook 1 off"},
    {"srtp-verified report", "srtp-verified call=0"},
    {"playback-empty report", "playback-empty call=0"},
    {"open command", "open call=0 port_min=16400 port_max=16402 tos=184 call_id=demo-0"},
    {"media command",
     "media call=0 send=8=pcma event_pt=101 map=8=pcma ptime=20 ssrc=12345678 rtp=127.0.0.1:20000 "
     "rtcp=127.0.0.1:20001"},
    {"media-ipv6 command", "media call=0 rtp=[::1]:20002"},
    {"media-srtp command", "media call=0 srtp_rx_key_bytes=30 srtp_tx_key_bytes=30 srtp_tag=10"},
    {"play command", "play call=0 kind=4 set=1"},
    {"ntp-offset command", "ntp-offset seconds=-5"},
    {"end-and-confirm command", "end call=7"}};

TEST(protocol_page, worked_datagrams_are_understood) {
    std::map<std::string, std::string> seen;
    for (worked_datagram const& worked : load_worked_datagrams(PROTOCOL_PAGE)) {
        std::string const name = worked.name + (worked.is_command ? " command" : " report");
        EXPECT_TRUE(worked.reply.empty() || understood.contains(worked.reply + " report")) << name;
        if (worked.is_command && !understood.contains(name))
            continue;
        description const said = worked.is_command ? describe_commands(worked.data).at(0)
                                                   : describe(parse_reports(worked.data).at(0));
        EXPECT_TRUE(seen.emplace(name, summary(said)).second) << name << " twice in the page";
    }
    EXPECT_EQ(seen, understood);
}

struct page {
    explicit page(std::string const& text) { std::ofstream(path) << text; }
    ~page() { std::remove(path.c_str()); }
    std::string path = testing::TempDir() + "page_" + std::to_string(getpid()) + ".md";
};

TEST(protocol_page, malformed_pages_fail_loudly) {
    for (char const* text : {"", "no blocks", "```hex a command\n00 1\n```\n", "```hex a command\n0g\n```\n",
                             "```hex a neither\n00\n```\n", "```hex a command foo=1\n00\n```\n",
                             "```hex a command\n```\n", "```hex a command\n00\n"})
        EXPECT_THROW(load_worked_datagrams(page(text).path), std::runtime_error) << text;
    EXPECT_THROW(load_worked_datagrams("/nonexistent"), std::runtime_error);
}

TEST(protocol_page, wildcards_match_any_byte_of_the_same_length) {
    worked_datagram const worked =
        load_worked_datagrams(page("```hex a report\n01 ??  # remark\n```\n").path).at(0);
    for (auto const& [datagram, matches] :
         {std::pair{bytes{1, 200}, true}, {bytes{2, 200}, false}, {bytes{1}, false}, {bytes{1, 2, 3}, false}})
        EXPECT_EQ(worked.matches(datagram), matches) << to_hex(datagram);
}

}  // namespace
