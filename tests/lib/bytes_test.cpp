#include "lib/bytes.h"

#include <gtest/gtest.h>

#include "lib/tlv.h"
#include "tests/support/bytes.h"

namespace {

TEST(tlv, encoders_byte_for_byte) {
    std::pair<str, char const*> const table[] = {
        {cmd_get_tlv_short(0x12345, -1), "2345 0002 FFFF"},
        {cmd_get_tlv_long(20, -2), "0014 0004 FFFFFFFE"},
        {cmd_get_tlv_str(19, str::null), "0013 0000"},
        {cmd_get_tlv_short_str(5, str("ab"), 0x1F90), "0005 0004 1F90 6162"},
        {cmd_get_tlv_address(5, ip_port(str(127, 0, 0, 1), 5004)), "0005 0006 138C 7F000001"},
        {cmd_get_tlv_address(5, ip_port()), "0005 0002 0000"},
        {utils::int2str(0x12345678, 1), "78"},
        {utils::int2str(0x80, 6), "000000000080"}};
    for (auto const& [element, bytes] : table)
        EXPECT_EQ(to_hex(to_string(element)), unspaced(bytes));
    str const long_one = cmd_get_tlv_str(13, str('x', 65535));
    EXPECT_EQ(to_hex(to_string(long_one.leftstr(5))), "000DFFFF78");
    EXPECT_EQ(long_one.length(), 65539);
}

TEST(tlv, short_values_are_filled_with_zero_bytes) {
    EXPECT_TRUE((tlv{0, str("ab1234")}.get_address() == ip_port(str("1234"), 0x6162)));
    EXPECT_TRUE((tlv{0, str("a")}.get_address() == ip_port(str::null, 0x6100)));
    EXPECT_TRUE((tlv{0, str::null}.get_address() == ip_port()));
}

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
