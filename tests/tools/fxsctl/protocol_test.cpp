// The programs' reading of the protocol: every worked report of its page, wrong and cut bytes, texts of addresses and
// codecs. What fxsctl sends is held to the page in arguments_test.cpp; random bytes: fuzz/fuzz_tools.cpp.

#include <gtest/gtest.h>

#include <map>

#include "tests/tools/child.h"
#include "tools/protocol/codecs.h"
#include "tools/protocol/description.h"
#include "tools/protocol/worked_datagrams.h"

using namespace protocol;

namespace {

std::string text_of(description const& message) {
    std::string text = message.name;
    for (described_field const& one : message.fields) {
        text += " " + one.name + "=";
        auto const* const words = std::get_if<std::string>(&one.value);
        auto const* const number = std::get_if<std::int64_t>(&one.value);
        text += words ? *words : std::to_string(number ? *number : std::get<bool>(one.value));
    }
    return text;
}

/// The reports, all of them, and the commands that say most, as name of the block, direction and meaning.
std::string const understood = R"(
session report: heartbeat
open report: open call=0 rtp_port=16400 rtcp_port=16401
open-anywhere report: open call=1 rtp_port=0 rtcp_port=0
reset-base report: reset-base command=3 result=0
loopback-test report: loopback found=1
log-ready report: log level=1 text=Media Process Ready
signal report: signal data=68656c6c6f
rtcp-received report: rtcp call=0 call_id=demo-0 direction=received packets=RR data=80c9000112345678
rtcp-sent report: rtcp call=0 call_id=demo-0 direction=sent packets=SR SDES data=81c800081234567800000000000000000000000000000000000000000000000000000000
tunnel report: tunnel call=0 from=127.0.0.1:20000 rtcp=0 tcp=0 data=000100002112a442303132333435363738396162
zrtp report: zrtp call=0 from=127.0.0.1:20000 data=100000015a5254501234567800000000
new-ssrc report: new-ssrc call=0 from=127.0.0.1:20000 ssrc=12345678
driver-line report: driver text=off-hook 1
srtp-verified report: srtp-verified call=0
playback-empty report: playback-empty call=0
open command: open call=0 port_min=16400 port_max=16402 call_id=demo-0 tos=184
media command: media call=0 send=8=pcma map=8=pcma ptime=20 event_pt=101 ssrc=12345678 rtp=127.0.0.1:20000 rtcp=127.0.0.1:20001
media-ipv6 command: media call=0 rtp=[::1]:20002
media-srtp command: media call=0 srtp_rx_key_bytes=30 srtp_tx_key_bytes=30 srtp_tag=10
play command: play call=0 kind=4 set=1
ntp-offset command: ntp-offset seconds=-5
end-and-confirm command: end call=7
)";

TEST(protocol_page, worked_datagrams_are_understood) {
    std::map<std::string, std::string> expected;
    for (std::string const& row : split(understood.substr(1), '\n'))
        expected[row.substr(0, row.find(':'))] = row.substr(row.find(':') + 2);
    for (worked_datagram const& worked : load_worked_datagrams(PROTOCOL_PAGE)) {
        std::string const name = worked.name + (worked.is_command ? " command" : " report");
        if (worked.is_command && !expected.contains(name))
            continue;
        std::string const said = text_of(worked.is_command ? describe_commands(worked.data).at(0)
                                                           : describe(parse_reports(worked.data).at(0)));
        ASSERT_TRUE(expected.contains(name)) << name << " is unknown, or stands twice";
        EXPECT_TRUE(said.starts_with(expected[name])) << said;
        expected.erase(name);
    }
    EXPECT_TRUE(expected.empty()) << expected.begin()->first << " is not in the page";
}

/// A datagram and what it is understood as, rows parted by "/"; "!": the whole is undecodable, and why.
std::string const odd_reports = R"(
>!empty datagram
0013>!element is cut off
00130001>!element is cut off
0013000100>!a heartbeat is not empty
00630000>!no report has tag 99
0006000c 000400020000 000d00021000>!sub-field 14 is missing
00060007 00040003000000>!sub-field 4 is no 16-bit number
00060005 0004000200>!a sub-field is cut off
00180017 000400020000 000500051388000000 0020000412345678>!sub-field 5 is no address
00180017 000400020000 000500061388 7f000001 00200003123456>!the SSRC has not 4 bytes
00130000 00630001ff 001c0006000400020005 0013>heartbeat/undecodable reason=no report has tag 99 data=00630001ff/playback-empty call=5/undecodable reason=element is cut off data=0013
00060017 000e00021001 0063000161 000d00021000 000400020007>open call=7 rtp_port=4096 rtcp_port=4097
000b000c 001b00020003 000f0002ffff>reset-base command=3 result=-1
00020012 000100020009 0002000161 0003000362 63 64>log level=9 text=a detail=bcd
000f0015 000400020001 000500061388 7f000001 000e0001 aa>tunnel call=1 from=127.0.0.1:5000 rtcp=1 data=aa
000e001d 000400020000 00160000 0009000f 80c80001 12345678 aabbccdd eeff00>rtcp call=0 call_id= direction=received packets=SR data=80c8000112345678aabbccddeeff00
)";

TEST(reports, odd_ones_in_any_company) {
    for (std::string const& row : split(odd_reports.substr(1), '\n')) {
        std::size_t const mark = row.find('>');
        bytes const datagram = from_hex(row.substr(0, mark)).value();
        std::string expected = row.substr(mark + 1), text;
        if (expected[0] == '!')
            expected = "undecodable reason=" + expected.substr(1) + " data=" + to_hex(datagram);
        for (report const& one : parse_reports(datagram))
            text += "/" + text_of(describe(one));
        EXPECT_EQ(text.substr(1), expected) << row;
    }
}

TEST(values, addresses_and_codecs_by_their_texts) {
    for (auto const& [text, hex] : {std::pair{"127.0.0.1:5004", "138c7f000001"},
                                    {"255.255.255.255:65535", "ffffffffffff"},
                                    {"[fe80::1]:1", "0001fe800000000000000000000000000001"}}) {
        std::optional<address> const parsed = parse_address(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_TRUE(to_hex(encode(tunnel_command{.to = parsed})).ends_with(hex)) << text;
        EXPECT_EQ(to_text(decode_address(*from_hex(hex)).value()), text);
    }
    // Without brackets the last group of IPv6 would be taken for the port.
    for (char const* wrong : {"127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1", "127.0.0.1:", "127.0.0.1:50x",
                              "127.0.0.300:5", "::1:5004", "[127.0.0.1]:5", "localhost:5004", "", ":"})
        EXPECT_FALSE(parse_address(wrong)) << wrong;
    for (auto const& [text, number] : {std::pair{"PCMA", 2}, {"g711u", 1}, {"G726-32", 6}, {"event", 7}, {"3", 3}})
        EXPECT_TRUE(find_codec(text) != nullptr && find_codec(text)->number == number) << text;
    for (char const* unknown : {"opus", "8", "", "-1"})
        EXPECT_EQ(find_codec(unknown), nullptr) << unknown;
}

}  // namespace
