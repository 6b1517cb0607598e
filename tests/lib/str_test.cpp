#include "lib/str.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "tests/lib/log_capture.h"
#include "tests/lib/str_support.h"

using namespace std::string_literals;

namespace {

TEST(str, construction_and_constants) {
    unsigned char const raw[] = {'a', 0, 'b'};
    expect_all({
        {str(), ""},
        {str("text"), "text"},
        {str(static_cast<char const*>(nullptr)), ""},
        {str(raw, 3), "a\0b"s},
        {str(raw, 0), ""},
        {str(raw, -1), ""},
        {str('x', 3), "xxx"},
        {str('x', -3), ""},
        {str(static_cast<unsigned char>(0xE9), 2), "\xE9\xE9"},
        {str(raw[2], raw[0]), "ba"},
        {str(raw[0], raw[1], raw[2]), "a\0b"s},
        {str(raw[2], raw[1], raw[0], raw[2]), "b\0ab"s},
        {str::null, ""},
        {str::lws, " \t\r\n"},
        {str::crlf, "\r\n"},
        {str::space, " "},
        {str::newline, "\n"},
        {str::t, "true"},
        {str::f, "false"},
        {str::x_00, "\0"s},
        {str::x_01, "\1"},
        {str::x_FF, "\xFF"},
        {str::c_file, "file"},
        {str::c_dir, "dir"},
        {str::backslash, "\\"},
        {str::slash, "/"},
        {str::dot, "."},
        {str::dot_dot, ".."},
    });
    EXPECT_EQ(str(static_cast<unsigned char const*>(nullptr), 5).length(), 5);
}

// A constant's bytes lie outside the pool: changing a sharer must leave it alone.
TEST(str, constants_are_copied_on_write) {
    str mine = str::crlf;
    mine += 'x';
    EXPECT_EQ(plain(mine), "\r\nx");
    EXPECT_EQ(plain(str::crlf), "\r\n");
}

TEST(str, index_outside_reads_zero) {
    str const s = str("abcdef").substr(1, 3);
    int const at[] = {INT_MIN, -1, 0, 2, 3, 4, INT_MAX};
    int const expected[] = {0, 0, 'b', 'd', 0, 0, 0};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(s[at[i]], expected[i]) << at[i];
    EXPECT_EQ(str()[0], 0);
}

TEST(str, comparison) {
    struct {
        std::string a, b;
        bool equal, equal_but_case, less;
    } const cases[] = {
        {"", "", true, true, false},          {"", "a", false, false, true},
        {"a", "", false, false, false},       {"ab", "abc", false, false, true},
        {"abc", "ab", false, false, false},   {"abc", "abd", false, false, true},
        {"abc", "abc", true, true, false},    {"ABz", "abZ", false, true, true},
        {"\x7f", "\x80", false, false, true}, {"\xff", "\x01", false, false, false},
        {"@[", "`{", false, false, true},     {"\xC4", "\xE4", false, false, true},
        {"\0"s, "", false, false, false},     {"a\0b"s, "a\0c"s, false, false, true},
        {"a\0b"s, "a", false, false, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.a + " / " + c.b);
        str const a = bytes(c.a), b = bytes(c.b);
        EXPECT_EQ(a == b, c.equal);
        EXPECT_EQ(a != b, !c.equal);
        EXPECT_EQ(a.cmp(b), c.equal);
        EXPECT_EQ(a.icmp(b), c.equal_but_case);
        EXPECT_EQ(a < b, c.less);
        if (c.b.find('\0') == std::string::npos) {
            EXPECT_EQ(a == c.b.c_str(), c.equal);
            EXPECT_EQ(a.icmp(c.b.c_str()), c.equal_but_case);
        }
    }
    EXPECT_TRUE(str() == static_cast<char const*>(nullptr));
    EXPECT_FALSE(str("a") == static_cast<char const*>(nullptr));
    EXPECT_TRUE(str().icmp(static_cast<char const*>(nullptr)));
}

TEST(str, substrings_clip) {
    str const s = str("xx0123456789").substr(2);
    expect_all({
        {s.substr(3, 4), "3456"},
        {s.substr(-2, 5), "012"},
        {s.substr(-2, 2), ""},
        {s.substr(8, 5), "89"},
        {s.substr(10, 1), ""},
        {s.substr(11, 1), ""},
        {s.substr(4, 0), ""},
        {s.substr(4, -1), ""},
        {s.substr(INT_MIN, INT_MAX), ""},
        {s.substr(1, INT_MAX), "123456789"},
        {s.substr(INT_MIN, INT_MIN), ""},
        {s.substr(INT_MAX, INT_MAX), ""},
        {s.substr(-3), "0123456789"},
        {s.substr(9), "9"},
        {s.substr(10), ""},
        {s.leftstr(3), "012"},
        {s.leftstr(-1), ""},
        {s.leftstr(99), "0123456789"},
        {s.rightstr(3), "789"},
        {s.rightstr(10), "0123456789"},
        {s.rightstr(99), "0123456789"},
        {s.rightstr(0), ""},
        {s.rightstr(INT_MIN), ""},
        {str().substr(0, 1), ""},
        {str().rightstr(1), ""},
    });
}

TEST(str, find) {
    struct {
        std::string text, wanted;
        int at;
    } const cases[] = {
        {"", "", -1},          {"", "a", -1},   {"abc", "", 0},    {"abc", "abcd", -1},  {"aab", "ab", 1},
        {"ababac", "abac", 2}, {"abc", "c", 2}, {"abc", "cd", -1}, {"a\0b"s, "\0b"s, 1}, {"aaa", "aaa", 0},
    };
    for (auto const& c : cases)
        EXPECT_EQ(bytes(c.text).find(bytes(c.wanted)), c.at) << c.text << " / " << c.wanted;
}

TEST(str, changes) {
    str s("ab");
    s.set_character(-1, 'x');
    s.set_character(4, 'e');
    s.set_character(1, 'B');
    str empty;
    empty.set_character(0, 'z');
    str copy("abc"), keyed("abc"), longer("a");
    copy.append(copy.substr(1).cbuffer(), -1);
    copy += copy;
    keyed.l_xor(0x20, 2);
    longer.l_xor(1, 3);
    expect_all({
        {s, "aB\0\0e"s},
        {empty, "z"},
        {copy, "abcabc"},
        {keyed, "ABc"},
        {longer, "`\1\1"},
        {bytes("\x0F\xF0\x55") & bytes("\x3C\x3C"), "\x0C\x30\0"s},
        {bytes("\x0F\xF0") ^ bytes("\x3C\x3C\x55"), "\x33\xCC\0"s},
        {bytes("\x0F\xF0\x55") | bytes("\x3C\x3C"), "\x3F\xFC\0"s},
        {str() | str("ab"), "\0\0"s},
        {!bytes("\0a\xFF\0"s), "\1\0\0\1"s},
        {str("ab") + str("cd").substr(1), "abd"},
        {str() + str(), ""},
    });
}

TEST(str, length_is_set_in_place_only) {
    str s("abcdef");
    s.set_length(2);
    EXPECT_EQ(plain(s), "ab");
    s.set_length(6);
    EXPECT_EQ(plain(s), "abcdef");
    s.set_length(16);
    EXPECT_EQ(s.length(), 16);
    EXPECT_EQ(take_log(), "");
    s.set_length(17);
    s.set_length(-1);
    str tail = s.substr(4, 2);
    tail.set_length(1);
    EXPECT_EQ(s.length(), 16);
    EXPECT_EQ(plain(tail), "ef");
    s.clear();
    tail.set_length(12);
    EXPECT_EQ(tail.length(), 12);
    tail.set_length(13);
    str().set_length(1);
    EXPECT_EQ(take_log(),
              "1 Cannot set length 17|1 Cannot set length -1|1 Cannot set length 1|1 Cannot set length 13|"
              "1 Cannot set length 1");
}

TEST(str, c_str_is_terminated_and_separate) {
    str const all("0123456789abcdefghij");
    str s = all.substr(3, 2);
    EXPECT_STREQ(s.c_str(), "34");
    EXPECT_EQ(s.length(), 2);
    EXPECT_EQ(plain(all), "0123456789abcdefghij");
    EXPECT_STREQ(str().c_str(), "");
    str full('f', 48);  // fills its block: the NUL needs another
    EXPECT_STREQ(full.c_str(), std::string(48, 'f').c_str());
    EXPECT_EQ(full.length(), 48);
}

TEST(str, lower_case_knows_ascii_only) {
    EXPECT_EQ(plain(str::lower_case(str("@AZ[az\xC4"))), "@az[az\xC4");
}

}  // namespace
