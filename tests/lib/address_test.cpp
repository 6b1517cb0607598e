#include "lib/address.h"

#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/seed.h"

namespace {

std::string compact(std::string_view text) {
    return to_hex(to_string(utils::compact_ip(to_str(text))));
}

std::string readable(std::string_view bytes, bool brackets = false) {
    return to_string(utils::readable_ip(to_str(bytes), brackets));
}

TEST(address, text_to_bytes) {
    struct {
        char const* text;
        char const* bytes;
    } const table[] = {
        {"192.168.1.77", "C0A8014D"},
        {"[192.168.1.77]", "C0A8014D"},
        {"300.256.-1.7", "2C00FF07"},
        {"10.1", "0A010000"},
        {"1.2.3.4.5", "01020304"},
        {"media.example", "00000000"},
        {"", "00000000"},
        {"[]", "00000000"},
        {"::1", "00000000000000000000000000000001"},
        {"[::1]", "00000000000000000000000000000001"},
        {"[[::1]]", "00000000000000000000000000000001"},
        {"::", "00000000000000000000000000000000"},
        {"fe80::1", "FE800000000000000000000000000001"},
        {"2001:DB8::", "20010DB8000000000000000000000000"},
        {"1:2:3:4:5:6:7:8", "00010002000300040005000600070008"},
        {"1::8", "00010000000000000000000000000008"},
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
    struct {
        char const* bytes;
        char const* text;
    } const table[] = {{"C0A8014D", "192.168.1.77"},
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
                       {"00000001000000000000000100010001", "0:1::1:1:1"}};
    for (auto const& [bytes, text] : table)
        EXPECT_EQ(readable(from_hex(bytes)), text) << bytes;
    EXPECT_EQ(readable(from_hex("00000000000000000000000000000001"), true), "[::1]");
    EXPECT_EQ(readable(from_hex("0A000001"), true), "10.0.0.1");

    ip_port const v4(to_str(from_hex("0A000001")), 5004), v6(to_str(from_hex(table[5].bytes)), 65535);
    EXPECT_EQ(to_string(utils::readable_ip(v4)), "10.0.0.1:5004");
    EXPECT_EQ(to_string(utils::readable_ip(v6)), "[::1]:65535");
    EXPECT_EQ(to_string(utils::readable_ip(v4, transport_type::udp)), "udp:10.0.0.1:5004");
    EXPECT_EQ(to_string(utils::readable_ip(v6, transport_type::tls)), "tls:[::1]:65535");
    EXPECT_EQ(to_string(utils::readable_ip(v4, transport_type::tcp)), "tcp:10.0.0.1:5004");
    EXPECT_EQ(to_string(transport_type(4).serialize()), "");
}

/// The text of eight groups; the run that is written "::" is chosen with the length of the candidate in bytes and
/// that of the challenger in groups.
std::string text_of_groups(unsigned const (&groups)[8]) {
    int best = 0, best_bytes = 0;
    for (int i = 0; i < 8; i++) {
        int run = 0;
        while (i + run < 8 && groups[i + run] == 0)
            run++;
        if (run > best_bytes) {
            best = i;
            best_bytes = 2 * run;
        }
        i += run;
    }
    auto const join = [&](int from, int to) {
        std::string text;
        char buffer[8];
        for (int i = from; i < to; i++)
            text += (std::snprintf(buffer, sizeof buffer, i > from ? ":%x" : "%x", groups[i]), buffer);
        return text;
    };
    if (best_bytes == 0)
        return join(0, 8);
    return join(0, best) + "::" + join(best + best_bytes / 2, 8);
}

TEST(address, every_pattern_of_zero_groups_reads_as_the_rule_says_and_parses_back) {
    for (unsigned pattern = 0; pattern < 256; pattern++) {
        unsigned groups[8];
        std::string bytes;
        for (unsigned i = 0; i < 8; i++) {
            groups[i] = (pattern >> i & 1) != 0 ? 0x10u << i | i : 0;
            bytes += be16(groups[i]);
        }
        std::string const text = readable(bytes);
        EXPECT_EQ(text, text_of_groups(groups));
        bool const lone_group_at_an_end = text.starts_with("::") ? text.length() > 2 && groups[1] != 0
                                                                 : text.ends_with("::") && groups[6] != 0;
        EXPECT_EQ(compact(text) == to_hex(bytes), !lone_group_at_an_end) << text;
        char parsed[16];
        ASSERT_EQ(inet_pton(AF_INET6, text.c_str(), parsed), 1) << text;
        EXPECT_EQ(to_hex({parsed, 16}), to_hex(bytes)) << text;
    }
}

TEST(address, random_addresses_agree_with_the_systems_conversions) {
    seed_range{7, 1}.for_each([](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        dice random(seed);
        char text[INET6_ADDRSTRLEN];
        for (int i = 0; i < 20000; i++) {
            std::string const v4 = be32(random.word());
            inet_ntop(AF_INET, v4.data(), text, sizeof text);
            ASSERT_EQ(readable(v4), text);
            ASSERT_EQ(compact(text), to_hex(v4));

            std::string v6;
            for (int group = 0; group < 8; group++)
                v6 += be16(random.chance(40) ? 0 : random.word() >> random.below(16) & 0xFFFF);
            inet_ntop(AF_INET6, v6.data(), text, sizeof text);
            if (std::string_view(text).find('.') == std::string_view::npos) {
                ASSERT_EQ(compact(text), to_hex(v6)) << text;
            }
            char parsed[16];
            ASSERT_EQ(inet_pton(AF_INET6, readable(v6).c_str(), parsed), 1);
            ASSERT_EQ(to_hex({parsed, 16}), to_hex(v6));
        }
    });
}

TEST(address, host_names_are_what_is_no_literal) {
    struct {
        char const* text;
        bool is_name;
    } const table[] = {{"", true},
                       {"localhost", true},
                       {"media.example.org", true},
                       {"1.2.3.4", false},
                       {"1.2.3", true},
                       {"1.2.3.4.5", true},
                       {"1.2.3.256", true},
                       {"1.2.3.-1", true},
                       {"1.2.3.x", true},
                       {"255.0.0.0", false},
                       {"[anything]", false},
                       {"[]", false},
                       {"[", true},
                       {"::1", false},
                       {"a:b:c", false},
                       {"fe80:1", true},
                       {"::g", true},
                       {"2001:DB8::FACE", false},
                       {"::ffff:1.2.3.4", true}};
    for (auto const& [text, is_name] : table)
        EXPECT_EQ(utils::is_host_name(str(text)), is_name) << text;
}

TEST(address, endpoints) {
    str const v4 = to_str(from_hex("0A000001"));
    EXPECT_TRUE(ip_port().empty());
    EXPECT_TRUE(ip_port(v4, 0).empty());
    EXPECT_TRUE(ip_port(str::null, 5004).empty());
    EXPECT_FALSE(ip_port(v4, 5004).empty());
    EXPECT_TRUE(ip_port(v4, 5004) == ip_port(to_str(from_hex("0A000001")), 5004));
    EXPECT_TRUE(ip_port(v4, 5004) != ip_port(v4, 5005));
    EXPECT_TRUE(ip_port(v4, 5004) != ip_port(to_str(from_hex("0A000002")), 5004));
    ip_port cleared(v4, 1);
    cleared.clear();
    EXPECT_TRUE(cleared == ip_port());
}

TEST(address, socket_addresses) {
    struct {
        char const* address;
        bool as_v4, as_v6;
    } const table[] = {{"", true, true},
                       {"0A000001", true, false},
                       {"20010DB8000000000000000000000001", false, true},
                       {"0A", false, false}};
    for (auto const& [address, as_v4, as_v6] : table) {
        std::string const bytes = from_hex(address);
        ip_port const endpoint(to_str(bytes), 0x1234);
        sockaddr_in v4;
        EXPECT_EQ(utils::conv4(endpoint, v4), as_v4) << address;
        EXPECT_EQ(v4.sin_family, AF_INET);
        EXPECT_EQ(v4.sin_port, htons(0x1234));
        EXPECT_EQ(v4.sin_addr.s_addr, bytes.size() == 4 ? htonl(0x0A000001) : 0u) << address;
        sockaddr_in6 v6;
        EXPECT_EQ(utils::conv6(endpoint, v6), as_v6) << address;
        EXPECT_EQ(v6.sin6_family, AF_INET6);
        EXPECT_EQ(v6.sin6_port, htons(0x1234));
        EXPECT_EQ(v6.sin6_scope_id, 0u);
        std::string const expected = bytes.size() == 16 ? bytes : std::string(16, 0);
        EXPECT_EQ(to_hex({reinterpret_cast<char const*>(&v6.sin6_addr), 16}), to_hex(expected)) << address;
    }
}

}  // namespace
