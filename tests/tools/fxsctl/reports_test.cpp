// The parser of reports against what no sound process sends: wrong and cut bytes. Random ones: fuzz/fuzz_tools.cpp.

#include "tools/protocol/reports.h"

#include <gtest/gtest.h>

#include "tests/tools/fxsctl/summary.h"

using namespace protocol;

namespace {

TEST(reports, odd_ones_in_any_company) {
    // Behind "!" why the whole is undecodable.
    std::pair<std::string, std::string> const cases[] = {
        {"", "!empty datagram"},
        {"0013", "!element is cut off"},
        {"001300", "!element is cut off"},
        {"00130001", "!element is cut off"},
        {"0013000100", "!a heartbeat is not empty"},
        {"00630000", "!no report has tag 99"},
        {"0006000c 000400020000 000d00021000", "!sub-field 14 is missing"},
        {"00060007 00040003000000", "!sub-field 4 is no 16-bit number"},
        {"00060005 0004000200", "!a sub-field is cut off"},
        {"001c0005 0004000100", "!sub-field 4 is no 16-bit number"},
        {"00180017 000400020000 000500051388000000 0020000412345678", "!sub-field 5 is no address"},
        {"00180017 000400020000 000500061388 7f000001 00200003123456", "!the SSRC has not 4 bytes"},
        // a wrong one does not spoil its neighbours
        {"00130000 00630001ff 001c0006000400020005 0013",
         "heartbeat\nundecodable reason=no report has tag 99 data=00630001ff\nplayback-empty call=5\n"
         "undecodable reason=element is cut off data=0013"},
        // fields in any order, unknown ones skipped, signs kept, parts joined
        {"00060017 000e00021001 0063000161 000d00021000 000400020007",
         "open call=7 rtp_port=4096 rtcp_port=4097"},
        {"000b000c 001b00020003 000f0002ffff", "reset-base command=3 result=-1"},
        {"00020012 000100020009 0002000161 0003000362 63 64", "log level=9 text=a detail=bcd"},
        {"000f0015 000400020001 000500061388 7f000001 000e0001 aa",
         "tunnel call=1 from=127.0.0.1:5000 rtcp=1 data=aa"},  // RTCP side: field 14, no TCP flag
    };
    for (auto const& [hex, understood] : cases) {
        bytes const datagram = from_hex(hex).value();
        std::string text;
        for (report const& one : parse_reports(datagram))
            text += "\n" + summary(describe(one));
        EXPECT_EQ(text.substr(1), understood[0] != '!' ? understood
                                                       : "undecodable reason=" + understood.substr(1) +
                                                             " data=" + to_hex(datagram));
    }
}

TEST(rtcp_copy, names_of_the_packets) {
    std::pair<char const*, char const*> const cases[] = {
        {"80c80001 12345678 81ca0001 12345678 80cf0001 12345678", "SR SDES XR"},
        {"80c80001 12345678 aabbccdd eeff0011", "SR"},  // SRTCP: the rest is not readable
        {"80c8ffff 12345678", "SR"},
        {"40c80001 12345678", ""},
        {"80c80001", ""},
    };
    for (auto const& [packet, names] : cases) {
        description const d = describe(rtcp_copy{0, "id", true, from_hex(packet).value()});
        EXPECT_EQ(std::get<std::string>(d.fields.at(3).value), names) << packet;
    }
}

}  // namespace
