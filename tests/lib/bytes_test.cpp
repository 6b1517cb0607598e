#include "lib/bytes.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "lib/link.h"
#include "lib/log.h"
#include "lib/random.h"
#include "lib/tlv.h"
#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"
#include "tests/support/seed.h"

namespace {

TEST(bytes, hex_text_of_every_byte) {
    std::string all, upper, lower;
    for (int i = 0; i < 256; i++) {
        char text[3];
        all += static_cast<char>(i);
        upper += (std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(i)), text);
        lower += (std::snprintf(text, sizeof text, "%02x", static_cast<unsigned>(i)), text);
    }
    EXPECT_EQ(to_string(utils::bin2hex(to_str(all), true)), upper);
    EXPECT_EQ(to_string(utils::bin2hex(to_str(all), false)), lower);
    EXPECT_TRUE(utils::bin2hex(str::null, true).empty());
}

TEST(bytes, big_endian_integers) {
    struct {
        unsigned value;
        int n;
        char const* bytes;
        int back;
    } const table[] = {
        {0x12345678, 4, "12345678", 0x12345678}, {0x12345678, 2, "5678", 0x5678}, {0x12345678, 1, "78", 0x78},
        {0xFFFFFFFE, 4, "FFFFFFFE", -2},         {0x80, 6, "000000000080", 0x80}, {0x12345678, 0, "", 0}};
    for (auto const& [value, n, bytes, back] : table) {
        EXPECT_EQ(to_hex(to_string(utils::int2str(value, n))), bytes);
        EXPECT_EQ(utils::str2int(to_str(from_hex(bytes))), back) << bytes;
    }
    EXPECT_EQ(utils::str2int(to_str(from_hex("AABBCC11223344"))), 0x11223344);
}

TEST(bytes, parts_of_a_textual_message) {
    struct {
        std::string message, header, body;
    } const table[] = {{"a: b\r\n\r\nbody", "a: b\r\n\r\n", "body"},
                       {"a: b\r\n\r\n \t\r\n body ", "a: b\r\n\r\n", "body "},
                       {"a\n\nb\r\n\r\nc", "a\n\n", "b\r\n\r\nc"},
                       {"a\r\rb\n\nc", "a\r\r", "b\n\nc"},
                       {"a\r\nb\r\n\nc", "a\r\nb\r\n\n", "c"},
                       {"a\n\rb\r\n", "a\n\rb\r\n", ""},
                       {"\n\n", "\n\n", ""},
                       {"no body", "no body", ""},
                       {"", "", ""},
                       {std::string("h\n\n\0\0x", 6), "h\n\n", "x"}};
    for (auto const& [message, header, body] : table) {
        EXPECT_EQ(utils::get_body_pos(to_str(message)), static_cast<int>(header.size())) << message;
        EXPECT_EQ(to_string(utils::get_header(to_str(message))), header);
        EXPECT_EQ(to_string(utils::get_body(to_str(message))), body);
    }
    EXPECT_EQ(utils::get_leading_whitespace(to_str(std::string(" \t\r\n\0x ", 7))), 5);
    EXPECT_EQ(utils::get_leading_whitespace(str(" ")), 1);
    EXPECT_EQ(utils::get_leading_whitespace(str::null), 0);
}

TEST(bytes, random_strings_are_the_low_bytes_of_the_systems_generator) {
    std::srand(77);
    std::string expected;
    for (int i = 0; i < 40; i++)
        expected += static_cast<char>(std::rand());
    utils::seed_rand(77);
    EXPECT_EQ(to_hex(to_string(utils::generate_randstr(40))), to_hex(expected));
    EXPECT_TRUE(utils::generate_randstr(0).empty());
    utils::seed_rand_from_system();
    str const first = utils::generate_randstr(8);
    utils::seed_rand_from_system();
    EXPECT_TRUE(first != utils::generate_randstr(8)) << "two starts draw the same";
}

// ---- elements of the control protocol

TEST(tlv, encoders_byte_for_byte) {
    str const v4 = to_str(from_hex("7F000001"));
    struct {
        str element;
        char const* bytes;
    } const table[] = {{cmd_get_tlv_short(4, 7), "0004 0002 0007"},
                       {cmd_get_tlv_short(0x12345, -1), "2345 0002 FFFF"},
                       {cmd_get_tlv_short(4, 65536 + 3), "0004 0002 0003"},
                       {cmd_get_tlv_long(20, -2), "0014 0004 FFFFFFFE"},
                       {cmd_get_tlv_str(19, str::null), "0013 0000"},
                       {cmd_get_tlv_str(22, str("id")), "0016 0002 6964"},
                       {cmd_get_tlv_short_str(5, str("ab"), 0x1F90), "0005 0004 1F90 6162"},
                       {cmd_get_tlv_address(5, ip_port(v4, 5004)), "0005 0006 138C 7F000001"},
                       {cmd_get_tlv_address(5, ip_port()), "0005 0002 0000"}};
    for (auto const& [element, bytes] : table)
        EXPECT_EQ(to_hex(to_string(element)), to_hex(from_hex(bytes)));
    str const long_one = cmd_get_tlv_str(13, str('x', 65535));
    EXPECT_EQ(to_hex(to_string(long_one.leftstr(5))), "000DFFFF78");
    EXPECT_EQ(long_one.length(), 65539);
}

TEST(tlv, addresses_of_any_length) {
    struct {
        char const* value;
        int port;
        char const* address;
    } const table[] = {{"138C7F000001", 5004, "7F000001"},
                       {"FFFF20010DB8000000000000000000000001", 65535, "20010DB8000000000000000000000001"},
                       {"138C", 5004, ""},
                       {"13", 0x1300, ""},
                       {"", 0, ""}};
    for (auto const& [value, port, address] : table) {
        ip_port const endpoint = tlv{0, to_str(from_hex(value))}.get_address();
        EXPECT_EQ(endpoint.port, port) << value;
        EXPECT_EQ(to_hex(to_string(endpoint.address)), address) << value;
    }
}

TEST(tlv, elements_come_off_a_stream_only_when_complete) {
    seed_range{11, 1}.for_each([](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        dice random(seed);
        std::vector<control_peer::element> sent, taken;
        std::string bytes;
        for (int i = 0; i < 200; i++) {
            sent.emplace_back(random.below(65536),
                              std::string(static_cast<std::size_t>(random.below(300)), 'v'));
            bytes += element_of(sent.back().first, sent.back().second);
        }
        str stream;
        for (std::size_t at = 0, n; at < bytes.size(); at += n) {
            n = static_cast<std::size_t>(random.between(1, 40));
            stream += to_str(std::string_view(bytes).substr(at, n));
            tlv element;
            for (;;) {
                int const before = stream.length();
                if (!element.take(stream)) {
                    ASSERT_EQ(stream.length(), before);
                    break;
                }
                taken.emplace_back(element.tag, to_string(element.value));
            }
        }
        EXPECT_EQ(taken, sent);
        EXPECT_TRUE(stream.empty());
    });
}

TEST(log_lines, are_datagrams_to_call_control) {
    control_peer peer;
    struct {
        int level;
        char const* text;
        char const* detail;
        std::string bytes;
    } const table[] = {
        {1, "Media Process Ready", "", from_hex("0002001D 0001 0002 0001 0002 0013") + "Media Process Ready"},
        {0, "", "", from_hex("0002000A 0001 0002 0000 0002 0000")},
        {9, "x", "more", from_hex("00020013 0001 0002 0009 0002 0001 78 0003 0004") + "more"}};
    EXPECT_EQ(table[0].bytes.size(), 33u);
    for (auto const& line : table) {
        EXPECT_EQ(log_add_message(line.level, str(line.text), str(line.detail)), 0);
        EXPECT_EQ(peer.datagrams(), std::vector<std::string>{line.bytes}) << line.text;
    }
}

TEST(log_lines, are_wanted_up_to_the_threshold) {
    EXPECT_FALSE(log_check_condition(0)) << "nothing is logged until a level is set";
    for (int const threshold : {-1, 0, 1, 5, 9, 65535})
        for (int level = 0; level <= 9; level++) {
            log_set_level(threshold);
            EXPECT_EQ(log_check_condition(level), level <= threshold) << level << " at " << threshold;
        }
    log_set_level(-1);
}

TEST(link, without_a_socket_messages_are_lost_and_nobody_minds) {
    EXPECT_EQ(command_fd, -1);
    EXPECT_EQ(send_command(str("x")), -1);
    EXPECT_EQ(to_string(utils::readable_ip(control_adr)), "127.0.0.1:1299");
}

}  // namespace
