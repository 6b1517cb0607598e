#include "lib/address.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace {

// Addresses that the C library understands too: fuzz/fuzz_address.cpp compares with it.
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
        {"2001:DB8::", "20010DB8000000000000000000000000"},
        {"12345:9abcde::", "2345BCDE000000000000000000000000"},
        {"::xyz1", "00000000000000000000000000000001"},
        {"::ffff:1.2.3.4", "000000000000000000000000FFFF0304"},
        {"::2:3:4:5:6:7:8", "000000000002000300040005000600070008"},  // the gap is not taken back
        {"1:2:3:4:5:6:7:8:9", "000100020003000400050006000700080009"}};
    for (auto const& [text, bytes] : table)
        EXPECT_EQ(to_hex(to_string(utils::compact_ip(to_str(text)))), bytes) << text;
}

TEST(address, bytes_to_text) {
    constexpr char const* table[][2] = {{"C0A8014D", "192.168.1.77:9"},
                                        {"", "0.0.0.0:9"},
                                        {"C0A801", "0.0.0.0:9"},
                                        {"00010002000300040005000600070008000A", "0.0.0.0:9"},
                                        {"00000000000000000000000000000000", "[::]:9"},
                                        {"00010002000300040005000600070000", "[1:2:3:4:5:6:7::]:9"},
                                        {"00000000000100000000000000000001", "[::1:0:0:0:0:1]:9"},
                                        {"00000001000000000000000100010001", "[0:1::1:1:1]:9"},
                                        {"00000001000000000000000000000001", "[0:1::1]:9"},
                                        {"00010000000100000000000000000001", "[1:0:1::1]:9"},
                                        {"00000001000200030004000500060007", "[::1:2:3:4:5:6:7]:9"}};
    for (auto const& [bytes, text] : table) {
        ip_port const endpoint(to_str(from_hex(bytes)), 9);
        EXPECT_EQ(to_string(utils::readable_ip(endpoint)), text) << bytes;
        EXPECT_EQ(to_string(utils::readable_ip(endpoint, transport_type::tls)), std::string("tls:") + text);
    }
    EXPECT_EQ(to_string(utils::readable_ip(str('\0', 16), false)), "::");
}

}  // namespace
