#include "lib/address.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace {

std::string compact(std::string_view text) {
    return to_hex(to_string(utils::compact_ip(to_str(text))));
}

std::string readable(std::string_view bytes, bool brackets = false) {
    return to_string(utils::readable_ip(to_str(bytes), brackets));
}

TEST(address, text_to_bytes) {
    constexpr char const* table[][2] = {
        {"192.168.1.77", "C0A8014D"},
        {"[192.168.1.77]", "C0A8014D"},
        {"300.256.-1.7", "2C00FF07"},
        {"10.1", "0A010000"},
        {"1.2.3.4.5", "01020304"},
        {"media.example", "00000000"},
        {"[]", "00000000"},
        {"[::1]", "00000000000000000000000000000001"},
        {"::", "00000000000000000000000000000000"},
        {"2001:DB8::", "20010DB8000000000000000000000000"},
        {"1:2:3:4:5:6:7:8", "00010002000300040005000600070008"},
        {"1:2:3::7:8", "00010002000300000000000000070008"},
        {"12345:9abcde::", "2345BCDE000000000000000000000000"},
        {"::xyz1", "00000000000000000000000000000001"},
        {"::ffff:1.2.3.4", "000000000000000000000000FFFF0304"},
        {"::2:3:4:5:6:7:8", "000000000002000300040005000600070008"},  // the gap is not taken back
        {"1:2:3:4:5:6:7:8:9", "000100020003000400050006000700080009"}};
    for (auto const& [text, bytes] : table)
        EXPECT_EQ(compact(text), bytes) << text;
}

TEST(address, bytes_to_text) {
    constexpr char const* table[][2] = {{"C0A8014D", "192.168.1.77"},
                                        {"", "0.0.0.0"},
                                        {"C0A801", "0.0.0.0"},
                                        {"00010002000300040005000600070008000A", "0.0.0.0"},
                                        {"00000000000000000000000000000000", "::"},
                                        {"00000000000000000000000000000001", "::1"},
                                        {"FE80000000000000000000000000ABCD", "fe80::abcd"},
                                        {"00010002000300040005000600070008", "1:2:3:4:5:6:7:8"},
                                        {"00010002000300040005000600070000", "1:2:3:4:5:6:7::"},
                                        {"00000000000100000000000000000001", "::1:0:0:0:0:1"},
                                        {"00000001000000000001000100010001", "::1:0:0:1:1:1:1"},
                                        {"00000001000000000000000100010001", "0:1::1:1:1"},
                                        {"00000001000000000000000000000001", "0:1::1"},
                                        {"00010000000100000000000000000001", "1:0:1::1"},
                                        {"00000001000200030004000500060007", "::1:2:3:4:5:6:7"}};
    for (auto const& [bytes, text] : table)
        EXPECT_EQ(readable(from_hex(bytes)), text) << bytes;
    EXPECT_EQ(readable(from_hex("00000000000000000000000000000001"), true), "[::1]");
    EXPECT_EQ(to_string(utils::readable_ip(ip_port(to_str(from_hex("0A000001")), 5004))), "10.0.0.1:5004");
    ip_port const v6(to_str(from_hex(table[5][0])), 65535);
    EXPECT_EQ(to_string(utils::readable_ip(v6, transport_type::tls)), "tls:[::1]:65535");
}

}  // namespace
