#include "lib/str.h"

#include <climits>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "lib/log.h"
#include "tests/support/bytes.h"

using namespace std::string_literals;

namespace {

/// In place of the log of lib/log.cpp; the lines, joined by "|".
std::string log_text;

void expect_all(std::vector<std::pair<str, std::string>> const& cases) {
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(to_string(cases[i].first), cases[i].second) << "case " << i;
}

}  // namespace

int log_level = 1;
void log_set_level(int level) {
    log_level = level;
}
int log_add_message(int level, str const& message, str const&) {
    log_text += (log_text.empty() ? "" : "|") + std::to_string(level) + " " + to_string(message);
    return 0;
}

namespace {

TEST(str, comparison) {
    std::tuple<std::string, std::string, bool> const cases[] = {
        // the last: equal but for case
        {"", "", true},       {"", "a", false},        {"ab", "abc", false},    {"abc", "ab", false},
        {"abc", "abc", true}, {"ABz", "abZ", true},    {"\x7f", "\x80", false}, {"\xff", "\x01", false},
        {"@[", "`{", false},  {"\xC4", "\xE4", false}, {"\0"s, "", false},      {"a\0b"s, "a\0c"s, false},
        {"a\0b"s, "a", false}};
    for (auto const& [first, second, equal_but_case] : cases) {
        SCOPED_TRACE(first + " / " + second);
        str const a = to_str(first), b = to_str(second);
        EXPECT_EQ(a == b, first == second);
        EXPECT_EQ(a < b, first < second);
        EXPECT_EQ(a.icmp(b), equal_but_case);
        if (second.find('\0') == std::string::npos) {
            EXPECT_EQ(a == second.c_str(), first == second);
            EXPECT_EQ(a.icmp(second.c_str()), equal_but_case);
        }
    }
}

TEST(str, substrings_clip) {
    str const s = str("xx0123456789").substr(2);
    expect_all({
        {s.substr(INT_MIN, INT_MAX), ""},
        {s.substr(1, INT_MAX), "123456789"},
        {s.substr(-3), "0123456789"},
        {s.leftstr(99), "0123456789"},
        {s.rightstr(3), "789"},
        {s.rightstr(99), "0123456789"},
        {s.rightstr(INT_MIN), ""},
        {str().rightstr(1), ""},
    });
}

// printf's "%0*d" counts the sign in the width, as str does.
TEST(str_text, decimal_like_printf) {
    std::mt19937 random(1);
    for (int i = -12000; i < 40000; ++i) {
        int const value = i < 12000 ? i : static_cast<int>(random()) >> random() % 32;
        int const width = static_cast<int>(random() % 11);
        auto const unsigned_value = static_cast<unsigned>(value);
        char expected[32];
        std::snprintf(expected, sizeof(expected), "%0*d %0*u", width, value, width, unsigned_value);
        ASSERT_EQ(to_string(str(value, width) + str(" ") + str(unsigned_value, width)), expected);
    }
    expect_all({
        {str(7, 11), "7"},
        {str(7, -3), "7"},
        {str(INT_MIN, 0), "-2147483648"},
    });
}

TEST(str_text, sprintf) {
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

TEST(str_text, numbers_in_text) {
    struct {
        char const* text;
        int value;
        unsigned unsigned_value;
        bool is_number;
    } const cases[] = {
        {"", 0, 0, false},          {"  +-12x", -12, 0, false},
        {"12", 12, 12, true},       {" \t12\t ", 12, 12, true},
        {"-12", -12, 0, true},      {"+12", 12, 12, false},
        {"-+12", 0, 0, false},      {"-", 0, 0, false},
        {"1-", 1, 1, false},        {"1 2", 1, 1, false},
        {"12x", 12, 12, false},     {"\r12", 0, 0, false},
        {"12\n", 12, 12, false},    {"++1", 0, 0, false},
        {"007", 7, 7, true},        {"4294967295", -1, 4294967295u, true},
        {"4294967301", 5, 5, true}, {"-2147483648", INT_MIN, 0, true},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(str(c.text).value(), c.value) << c.text;
        EXPECT_EQ(str(c.text).unsigned_value(), c.unsigned_value) << c.text;
        EXPECT_EQ(str(c.text).is_number(), c.is_number) << c.text;
    }
}

TEST(str_text, strip_and_fields) {
    str const words("  a   b c"), line(" a b\r\nc d"), none;
    expect_all({
        {str(" x ").strip(none), " x "},
        {str("''q'w'").strip('\''), "q'w"},
        {str("  x ").strip_trailing(str::lws), "  x"},
        {words.get_field(2, str::space), "c"},
        {words.get_field(5, ' '), ""},
        {words.get_field(0, none), "  a   b c"},
        {str(",;x;,y;;").get_field(1, str(",;")), "y"},
        {line.get_field(1, ' '), "b"},
        {line.get_field(2, ' '), "d"},  // only the field wanted ends at the line end
        {line.get_rest(1, ' '), "b\r\nc d"},
    });
}

TEST(str_text, records) {
    str const head("First: 1\r\nCONTENT-Length :  12 \r\n  34\r\nl: 5\r\nfirst:2\r\nBare\r\n\r\n");
    str const none, length("content-length"), first("FIRST"), nine("9");
    expect_all({
        {head.get_record(length, none, ':', str::lws), "CONTENT-Length :  12 \r\n  34"},
        {head.get_record(length, none, ':', none), ""},
        {head.get_record_content(first, none, ':', none), " 1"},
        {head.get_record_content(str("other"), str("l"), ':', str::lws), "5"},
        {str("a: 1\r\nb: 2\r\n 3\r\nc: 4\r\n\r\n").set_record_content(str("B"), none, nine, ':', str::space),
         "a: 1\r\nb: 9\r\nc: 4\r\n\r\n"},
        {str("a: 1\r\n\r\n").set_record_content(str("New"), str("n"), nine, ':', none),
         "a: 1\r\nNew:9\r\n\r\n"},
    });
}

// ---- files

TEST(str_file, what_is_written_is_read_back_and_failures_are_logged) {
    std::string const root =
        std::filesystem::temp_directory_path() / ("str_test_" + std::to_string(getpid()));
    auto const path = [&](char const* below) { return str((root + "/" + below).c_str()); };
    log_text.clear();
    for (str const& content : {str('x', 262144), str::x_00 + str("b"), str()}) {
        ASSERT_TRUE(str::write_file(content, path("new\\deep/file")));
        EXPECT_TRUE(str::read_file(path("new/deep\\file"), false) == content);
        EXPECT_EQ(str::file_size(path("new\\deep\\file")), content.length());
    }
    EXPECT_EQ(to_string(str::list_directory(path("new"), true)), "deep dir\n");
    EXPECT_TRUE(str::rename_file(path("new\\deep\\file"), path("moved")));
    EXPECT_TRUE(str::remove_file(path(".\\moved"), false));
    EXPECT_FALSE(str::read_file(str("/proc/self/environ"), false).empty()) << "it reports size 0";
    EXPECT_EQ(log_text, "");

    EXPECT_TRUE(str::read_file(path("x"), true).empty());
    EXPECT_TRUE(str::read_file(path("x"), false).empty());
    EXPECT_FALSE(str::write_file(str("x"), str("/dev/null/x")));
    EXPECT_FALSE(str::remove_file(path("x"), true));
    EXPECT_FALSE(str::remove_file(path("x"), false));
    EXPECT_EQ(log_text, "1 Could not fstat " + root + "/x|1 Could not open /dev/null/x for writing|" +
                            "1 Cannot remove file " + root + "/x");
    std::filesystem::remove_all(root);
}

}  // namespace
