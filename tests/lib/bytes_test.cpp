#include "lib/bytes.h"

#include <gtest/gtest.h>

#include "lib/log.h"
#include "lib/tlv.h"
#include "lib/wire.h"
#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

namespace {

TEST(wire, numbers_of_every_width) {
    unsigned char bytes[8];
    auto const written = [&](int n) { return to_hex(to_string(str(bytes, n))); };
    wire::put16(bytes, 0x12345678);
    EXPECT_EQ(written(2), "5678");
    wire::put24(bytes, 0x12345678);
    EXPECT_EQ(written(3), "345678");
    wire::put32(bytes, 0x12345678);
    EXPECT_EQ(written(4), "12345678");
    wire::put64(bytes, 0xF0E1D2C3B4A59687);
    EXPECT_EQ(written(8), "F0E1D2C3B4A59687");
    EXPECT_EQ(wire::get16(bytes), 0xF0E1u);
    EXPECT_EQ(wire::get24(bytes), 0xF0E1D2u);
    EXPECT_EQ(wire::get32(bytes), 0xF0E1D2C3u);
    EXPECT_EQ(wire::get64(bytes), 0xF0E1D2C3B4A59687u);
}

TEST(bytes, big_endian_integers) {
    EXPECT_EQ(to_hex(to_string(utils::int2str(0x12345678, 4))), "12345678");
    EXPECT_EQ(to_hex(to_string(utils::int2str(0x12345678, 1))), "78");
    EXPECT_EQ(to_hex(to_string(utils::int2str(0x80, 6))), "000000000080");
    EXPECT_EQ(utils::str2int(to_str(from_hex("AABBCCFFFFFFFE"))), -2);
    EXPECT_EQ(utils::str2int(str()), 0);
}

TEST(tlv, encoders_byte_for_byte) {
    std::pair<str, char const*> const table[] = {
        {cmd_get_tlv_short(0x12345, -1), "2345 0002 FFFF"},
        {cmd_get_tlv_long(20, -2), "0014 0004 FFFFFFFE"},
        {cmd_get_tlv_str(19, str::null), "0013 0000"},
        {cmd_get_tlv_short_str(5, str("ab"), 0x1F90), "0005 0004 1F90 6162"},
        {cmd_get_tlv_address(5, ip_port(str(127, 0, 0, 1), 5004)), "0005 0006 138C 7F000001"},
        {cmd_get_tlv_address(5, ip_port()), "0005 0002 0000"}};
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

TEST(log_lines, are_datagrams_to_call_control) {
    control_peer peer;
    log_add_message(9, str("x"), str("more"));
    EXPECT_EQ(peer.datagrams(),
              std::vector{from_hex("00020013 0001 0002 0009 0002 0001 78 0003 0004") + "more"});
}

}  // namespace
