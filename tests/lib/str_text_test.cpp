#include <gtest/gtest.h>
#include <regex.h>

#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "lib/str.h"
#include "tests/lib/str_support.h"

using namespace std::string_literals;

namespace {

// printf's "%0*d" counts the sign in the width, as str does.
TEST(str_text, decimal_like_printf) {
    std::mt19937 random(1);
    for (int i = -12000; i < 40000; ++i) {
        int const value = i < 12000 ? i : static_cast<int>(random()) >> random() % 32;
        int const width = static_cast<int>(random() % 11);
        char expected[32];
        std::snprintf(expected, sizeof(expected), "%0*d", width, value);
        ASSERT_EQ(plain(str(value, width)), expected) << value << " width " << width;
        std::snprintf(expected, sizeof(expected), "%0*u", width, static_cast<unsigned>(value));
        ASSERT_EQ(plain(str(static_cast<unsigned>(value), width)), expected) << value << " width " << width;
    }
    expect_all({
        {str(5, 3), "005"},
        {str(-5, 3), "-05"},
        {str(0, 0), "0"},
        {str(7, 10), "0000000007"},
        {str(7, 11), "7"},
        {str(0, 12), "0"},
        {str(-7, 12), "-7"},
        {str(7, -3), "7"},
        {str(-7, INT_MIN), "-7"},
        {str(INT_MIN, 0), "-2147483648"},
        {str(UINT_MAX, 10), "4294967295"},
    });
}

TEST(str_text, sprintf) {
    str const data = bytes("\x00\xAB\x5C"s);
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

TEST(str_text, numbers_in_text) {
    struct {
        char const* text;
        int value;
        unsigned unsigned_value;
        bool is_number;
    } const cases[] = {
        {"", 0, 0, false},          {"x", 0, 0, false},
        {"  +-12x", -12, 0, false}, {"12", 12, 12, true},
        {" \t12\t ", 12, 12, true}, {"-12", -12, 0, true},
        {"+12", 12, 12, false},     {"-+12", 0, 0, false},
        {"--1", 0, 0, false},       {"-", 0, 0, false},
        {"1-", 1, 1, false},        {"1 2", 1, 1, false},
        {"12x", 12, 12, false},     {"\r12", 0, 0, false},
        {"12\n", 12, 12, false},    {" ", 0, 0, false},
        {"- 1", 0, 0, false},       {"++1", 0, 0, false},
        {"007", 7, 7, true},        {"4294967295", -1, 4294967295u, true},
        {"4294967301", 5, 5, true}, {"-2147483648", INT_MIN, 0, true},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(str(c.text).value(), c.value) << c.text;
        EXPECT_EQ(str(c.text).unsigned_value(), c.unsigned_value) << c.text;
        EXPECT_EQ(str(c.text).is_number(), c.is_number) << c.text;
    }
    EXPECT_EQ(str("1234").leftstr(2).value(), 12);  // bytes behind the end don't count
}

TEST(str_text, big_endian_integers) {
    struct {
        std::string data;
        unsigned two, four;
    } const cases[] = {
        {"", 0, 0},
        {"\x81", 0x8100, 0x81000000},
        {"\x81\xFE\x03", 0x81FE, 0x81FE0300},
        {"\xFF\x01\x80\x7F\x55", 0xFF01, 0xFF01807F},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(str2int16(bytes(c.data)), c.two);
        EXPECT_EQ(str2uint32(bytes(c.data)), c.four);
    }
}

TEST(str_text, strip_and_fields) {
    str const words("  a   b c"), line(" a b\r\nc d"), csv(",;x;,y;;"), none;
    expect_all({
        {str(" \t x y \r\n").strip(str::lws), "x y"},
        {str(" x ").strip(none), " x "},
        {str(" \t ").strip(str::lws), ""},
        {none.strip(str::lws), ""},
        {str("''q'w'").strip('\''), "q'w"},
        {str("  x ").strip_leading(str::lws), "x "},
        {str("  x ").strip_trailing(str::lws), "  x"},
        {str("   ").strip_leading(str::space), ""},
        {str("   ").strip_trailing(str::space), ""},
        {words.get_field(0, str::space), "a"},
        {words.get_field(1, str::space), "b"},
        {words.get_field(2, str::space), "c"},
        {words.get_field(3, str::space), ""},
        {words.get_field(5, str::space), ""},
        {words.get_field(1, ' '), "b"},
        {words.get_field(5, ' '), ""},
        {words.get_field(0, none), "  a   b c"},
        {words.get_field(1, none), ""},
        {csv.get_field(0, str(",;")), "x"},
        {csv.get_field(1, str(",;")), "y"},
        {csv.get_field(2, str(",;")), ""},
        {line.get_field(1, ' '), "b"},
        {line.get_field(1, str::space), "b\r\nc"},
        {line.get_field(2, ' '), "d"},  // only the field wanted ends at the line end
        {line.get_rest(1, ' '), "b\r\nc d"},
        {line.get_rest(0, ' '), "a b\r\nc d"},
        {line.get_rest(3, ' '), ""},
        {none.get_field(0, ' '), ""},
    });
    EXPECT_TRUE(str::one_of('\t', str::lws));
    EXPECT_FALSE(str::one_of(0, str::lws));
    EXPECT_FALSE(str::one_of('x', none));
}

/// Positions behind all line ends, found by a POSIX regular expression (the longest match counts).
std::vector<int> line_starts(std::string const& text, bool fold) {
    static regex_t expressions[2];
    [[maybe_unused]] static int const failed =
        regcomp(&expressions[0], "\r\n|\n\r|\r|\n", REG_EXTENDED) +
        regcomp(&expressions[1], "\r\n |\r\n|\n\r|\r|\n", REG_EXTENDED);
    EXPECT_EQ(failed, 0);
    std::vector<int> starts{0};
    regmatch_t match;
    for (int pos = 0; regexec(&expressions[fold], text.c_str() + pos, 1, &match, 0) == 0;
         pos += match.rm_eo) {
        if (match.rm_eo - match.rm_so < 3)
            starts.push_back(pos + match.rm_eo);
    }
    return starts;
}

// Every text of up to 6 bytes of these four.
TEST(str_text, lines_of_all_short_texts) {
    for (unsigned code = 0; code < 5461; ++code) {
        std::string text;
        for (unsigned rest = code; rest > 0; rest = (rest - 1) / 4)
            text += "\r\n a"[(rest - 1) % 4];
        SCOPED_TRACE(testing::PrintToString(text));
        for (bool fold : {false, true}) {
            std::vector<int> const starts = line_starts(text, fold);
            for (int n = -1; n < 8; ++n) {
                auto const index = static_cast<std::size_t>(n < 0 ? 0 : n);
                int const expected = index < starts.size() ? starts[index] : static_cast<int>(text.size());
                ASSERT_EQ(str(text.c_str()).first_letter_of_line(n, fold), expected) << n << fold;
            }
        }
        std::size_t const last = text.find_last_not_of("\r\n");
        ASSERT_EQ(str(text.c_str()).last_letter_of_line(0, false), static_cast<int>(last + 1));
        str rest(text.c_str());
        ASSERT_EQ(plain(rest.get_line(-1)), "");
        for (int start : line_starts(text, false)) {
            std::string const from = text.substr(static_cast<std::size_t>(start));
            std::string const expected = from.substr(0, from.find_first_of("\r\n"));
            int const n =
                static_cast<int>(line_starts(text.substr(0, static_cast<std::size_t>(start)), false).size()) -
                1;
            ASSERT_EQ(plain(rest), from);
            ASSERT_EQ(plain(str(text.c_str()).get_line(n)), expected) << n;
            ASSERT_EQ(plain(rest.take_line()), expected);
        }
        ASSERT_TRUE(rest.empty());
    }
}

TEST(str_text, records) {
    str const head("First: 1\r\nCONTENT-Length :  12 \r\n  34\r\nl: 5\r\nfirst:2\r\nBare\r\n\r\n");
    str const none, length("content-length"), first("FIRST"), other("other");
    expect_all({
        {head.get_record(first, none, ':', str::lws), "First: 1"},
        {head.get_record(length, none, ':', str::lws), "CONTENT-Length :  12 \r\n  34"},
        {head.get_record(length, none, ':', none), ""},
        {head.get_record(other, str("L"), ':', str::lws), "l: 5"},
        {head.get_record(other, none, ':', str::lws), ""},
        {head.get_record_content(first, none, ':', str::lws), "1"},
        {head.get_record_content(first, none, ':', none), " 1"},
        {head.get_record_content(length, str("l"), ':', str::lws), "12 \r\n  34"},
        {head.get_record_content(str("bare"), none, ':', str::lws), ""},
        {none.get_record_content(first, none, ':', str::lws), ""},
        {str("a: 1\r\n\t2\r\nb: 3").get_record(str("a"), none, ':', none), "a: 1\r\n\t2"},
        {str("a: x\r\nb: y").get_record(str("B"), none, ':', none), "b: y"},
        {str("a: 1\r\nb: 2\r\n 3\r\nc: 4\r\n\r\n")
             .set_record_content(str("B"), none, str("9"), ':', str::space),
         "a: 1\r\nb: 9\r\nc: 4\r\n\r\n"},
        {str("a: 1\r\nL : 2\r\nb: 4").set_record_content(str("l"), str("B"), str("9"), ':', none),
         "a: 1\r\nL : 2\r\nb:9\r\n"},
        {str("a: 1\r\n\r\n").set_record_content(str("New"), str("n"), str("9"), ':', str::space),
         "a: 1\r\nNew: 9\r\n\r\n"},
        {str("a: 1\r\n").set_record_content(str("n"), none, str("9"), '=', none), "a: 1\r\nn=9\r\n"},
        {str("a: 1").set_record_content(str("n"), none, str("9"), '=', none), "a: 1\r\nn=9\r\n"},
        {none.set_record_content(str("n"), none, str("9"), '=', none), "n=9\r\n"},
        {str::crlf.set_record_content(str("n"), none, str("9"), '=', none), "n=9\r\n\r\n"},
    });
}

}  // namespace
