// The parser of reports against what no sound process sends: wrong, cut and random bytes.

#include "tools/protocol/reports.h"

#include <gtest/gtest.h>

#include <random>

#include "tools/protocol/description.h"
#include "tools/protocol/tlv.h"
#include "tools/protocol/worked_datagrams.h"

using namespace protocol;

namespace {

TEST(reports, wrong_ones_come_out_with_reason_and_bytes) {
    const struct {
        const char* hex;
        const char* reason;
        const char* data;
    } cases[] = {
        {"", "empty datagram", ""},
        {"0013", "element is cut off", "0013"},
        {"001300", "element is cut off", "001300"},
        {"00130001", "element is cut off", "00130001"},
        {"0013000100", "a heartbeat is not empty", "0013000100"},
        {"00630000", "no report has tag 99", "00630000"},
        {"0006000c 000400020000 000d00021000", "sub-field 14 is missing", "0006000c000400020000000d00021000"},
        {"00060007 00040003000000", "sub-field 4 is no 16-bit number", "0006000700040003000000"},
        {"00060005 0004000200", "a sub-field is cut off", "000600050004000200"},
        {"001c0005 0004000100", "sub-field 4 is no 16-bit number", "001c00050004000100"},
        {"00180017 000400020000 000500051388000000 0020000412345678", "sub-field 5 is no address", nullptr},
        {"00180017 000400020000 000500061388 7f000001 00200003123456", "the SSRC has not 4 bytes", nullptr},
    };
    for (const auto& one : cases) {
        const std::vector<report> reports = parse_reports(from_hex(one.hex).value());
        ASSERT_FALSE(reports.empty()) << one.hex;
        const undecodable* wrong = std::get_if<undecodable>(&reports.front());
        ASSERT_NE(wrong, nullptr) << one.hex;
        EXPECT_EQ(wrong->reason, one.reason) << one.hex;
        if (one.data != nullptr) {
            EXPECT_EQ(to_hex(wrong->data), one.data) << one.hex;
        }
    }
}

TEST(reports, a_wrong_one_does_not_spoil_its_neighbours) {
    const std::vector<report> reports =
        parse_reports(from_hex("00130000 00630001ff 001c0006000400020005 0013").value());
    ASSERT_EQ(reports.size(), 4U);
    EXPECT_TRUE(std::holds_alternative<heartbeat>(reports[0]));
    EXPECT_TRUE(std::holds_alternative<undecodable>(reports[1]));
    EXPECT_EQ(std::get<playback_empty>(reports[2]).call, 5);
    EXPECT_EQ(to_hex(std::get<undecodable>(reports[3]).data), "0013");
}

TEST(reports, fields_in_any_order_unknown_ones_skipped_signs_kept) {
    const auto open =
        parse_reports(from_hex("0006001700 0e000210 01 0063000161 000d00021000 000400020007").value());
    EXPECT_EQ(std::get<open_reply>(open.at(0)).call, 7);
    EXPECT_EQ(std::get<open_reply>(open.at(0)).rtcp_port, 0x1001);
    const auto driver = parse_reports(from_hex("000b000c 001b00020003 000f0002ffff").value());
    EXPECT_EQ(std::get<driver_result>(driver.at(0)).result, -1);
    const auto log = parse_reports(from_hex("00020012 000100020009 0002000161 0003000362 63 64").value());
    EXPECT_EQ(std::get<log_line>(log.at(0)).detail, "bcd");
    const auto tunnel =  // RTCP side: field 14, no TCP flag
        parse_reports(from_hex("000f0015 000400020001 000500061388 7f000001 000e0001 aa").value());
    EXPECT_TRUE(std::get<tunnel_data>(tunnel.at(0)).rtcp);
    EXPECT_FALSE(std::get<tunnel_data>(tunnel.at(0)).tcp.has_value());
}

// Every element of the datagram is accounted for: what was understood plus the bytes of what was not.
void expect_accounted(const bytes& datagram) {
    const std::vector<report> reports = parse_reports(datagram);
    const tlv_list list = split_tlvs(datagram);
    const bool leftover = !list.rest.empty() || list.elements.empty();
    ASSERT_EQ(reports.size(), list.elements.size() + (leftover ? 1 : 0)) << to_hex(datagram);
    for (const report& one : reports) {
        EXPECT_FALSE(describe(one).name.empty());
    }
    describe_commands(datagram);
}

TEST(reports, every_truncation_and_single_byte_change_of_real_ones) {
    for (const worked_datagram& worked : load_worked_datagrams(PROTOCOL_PAGE)) {
        for (std::size_t length = 0; length < worked.data.size(); ++length) {
            expect_accounted(
                {worked.data.begin(), worked.data.begin() + static_cast<std::ptrdiff_t>(length)});
        }
        for (std::size_t i = 0; i < worked.data.size(); ++i) {
            for (const std::uint8_t value : bytes{0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                bytes changed = worked.data;
                changed[i] = value;
                expect_accounted(changed);
            }
        }
    }
}

TEST(reports, random_elements) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](unsigned limit) { return static_cast<std::uint16_t>(random() % limit); };
    for (int round = 0; round < 20000; ++round) {
        bytes fields;
        for (int count = below(5); count > 0; --count) {
            bytes value(below(20));
            for (std::uint8_t& byte : value) {
                byte = static_cast<std::uint8_t>(random());
            }
            append_tlv(fields, below(36), value);
        }
        bytes datagram;
        append_tlv(datagram, below(32), fields);
        datagram.resize(datagram.size() -
                        std::min<std::size_t>(datagram.size(), below(8) == 0 ? below(6) : 0));
        expect_accounted(datagram);
    }
}

TEST(rtcp_copy, names_of_the_packets) {
    const struct {
        const char* packet;
        const char* names;
    } cases[] = {
        {"80c80001 12345678 81ca0001 12345678 80cf0001 12345678", "SR SDES XR"},
        {"80c80001 12345678 aabbccdd eeff0011", "SR"},  // SRTCP: the rest is not readable
        {"80c8ffff 12345678", "SR"},
        {"40c80001 12345678", ""},
        {"80c80001", ""},
    };
    for (const auto& one : cases) {
        const description d = describe(rtcp_copy{0, "id", true, from_hex(one.packet).value()});
        EXPECT_EQ(std::get<std::string>(d.fields.at(3).value), one.names) << one.packet;
    }
}

}  // namespace
