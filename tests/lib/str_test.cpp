#include "lib/str.h"

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/seed.h"

using namespace std::string_literals;

namespace {

void expect_all(std::vector<std::pair<str, std::string>> const& cases) {
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(to_string(cases[i].first), cases[i].second) << "case " << i;
}

TEST(str, comparison) {
    std::string const all[] = {"",     "a",    "ab", "abc", "ABz",  "abZ",  "\x7f", "\x80",
                               "\xff", "\x01", "@[", "`{",  "\xC4", "\xE4", "\0"s,  "a\0b"s};
    auto const folded = [](std::string text) {
        for (char& c : text)
            c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        return text;
    };
    for (std::string const& first : all)
        for (std::string const& second : all) {
            SCOPED_TRACE(first + " / " + second);
            str const a = to_str(first), b = to_str(second);
            bool const same = folded(first) == folded(second);
            EXPECT_TRUE((a == b) == (first == second) && (a < b) == (first < second) && a.icmp(b) == same);
            if (second.find('\0') == std::string::npos) {
                EXPECT_TRUE((a == second.c_str()) == (first == second) && a.icmp(second.c_str()) == same);
            }
        }
}

// Fields, lines, records and numbers in text: fuzz/fuzz_text.cpp has a model of them.
TEST(str, arguments_out_of_any_range) {
    str const s = str("xx0123456789").substr(2), records("A: 1\r\nb : 2\r\n 3\r\nc: 4\r\n\r\n"), nine("9");
    expect_all({
        {s.substr(INT_MIN, INT_MAX), ""},
        {s.substr(1, INT_MAX), "123456789"},
        {s.substr(-3), "0123456789"},
        {s.rightstr(INT_MIN), ""},
        {s.get_field(INT_MAX, '3'), ""},
        {s.get_line(-1), ""},
        {records.get_record(str("z"), str("B"), ':', str::lws), "b : 2\r\n 3"},
        {records.get_record(str("b"), str::null, ':', str::null), ""},
        {records.set_record_content(str("z"), str("a"), nine, ':', str::space),
         "A: 9\r\nb : 2\r\n 3\r\nc: 4\r\n\r\n"},
        {records.set_record_content(str("b "), str::null, nine, ':', str::null),
         "A: 1\r\nb :9\r\nc: 4\r\n\r\n"},
        {records.set_record_content(str("b"), str::null, nine, ':', str::null),
         "A: 1\r\nb : 2\r\n 3\r\nc: 4\r\nb:9\r\n\r\n"},
    });
}

// printf's "%0*d" counts the sign in the width, as str does.
TEST(str, decimal_like_printf) {
    dice random(1);
    for (int i = -12000; i < 40000; ++i) {
        int const value = i < 12000 ? i : static_cast<int>(random.word()) >> random.below(32);
        int const width = random.below(11);
        auto const unsigned_value = static_cast<unsigned>(value);
        char expected[32];
        std::snprintf(expected, sizeof(expected), "%0*d %0*u", width, value, width, unsigned_value);
        ASSERT_EQ(to_string(str(value, width) + str(" ") + str(unsigned_value, width)), expected);
    }
    expect_all({{str(7, 11), "7"}, {str(7, -3), "7"}, {str(INT_MIN, 0), "-2147483648"}});
}

TEST(str, sprintf) {
    str const data = to_str("\x00\xAB\x5C"s);
    expect_all({
        {str::sprintf(nullptr), ""},
        {str::sprintf(""), ""},
        {str::sprintf("no conversion"), "no conversion"},
        {str::sprintf("%d,%3d,%03d,%0d,%00d", arg_int(-1), 7, 7, 0, 12), "-1,007,007,0,12"},
        {str::sprintf("[%12d][%012d][%3d][%3d]", 7, 7, -5, 12345), "[           7][7][-05][12345]"},
        {str::sprintf("%u %9u", 4294967295u, 7u), "4294967295 7"},
        {str::sprintf("%x %x %x %x", 0u, 0xAu, 0x12345u, 0xFEDCBA98u), "0000 000A 2345 BA98"},
        {str::sprintf("%s|%S|%S", arg_str(data), "text", static_cast<char const*>(nullptr)),
         "\0\xAB\\|text|"s},
        {str::sprintf("%h %H %h", arg_str(data), arg_str(data), arg_str(str::null)), "00ab5c 00AB5C "},
        {str::sprintf("%c%c%%%", 'a', 0x1FF), "a\xFF%"},
        {str::sprintf("%i%5q%X%d", 8), "8"},  // unknown ones consume nothing
    });
}

}  // namespace
