#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "lib/bytes.h"
#include "tests/support/bytes.h"
#include "tests/support/seed.h"

using namespace std::string_literals;

namespace {

void expect_all(std::vector<std::pair<str, std::string>> const& cases) {
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(to_string(cases[i].first), cases[i].second) << "case " << i;
}

// Order and equality of strings, fields, lines, records and numbers in text: fuzz/fuzz_text.cpp has a model of them.
TEST(str, comparison_with_texts_and_without_case) {
    constexpr char const* texts[] = {"", "a", "ab", "ABz", "abZ", "\x80", "@[", "`{", "\xC4", "\xE4"};
    for (char const* const first : texts)
        for (char const* const second : texts) {
            bool const same = strcasecmp(first, second) == 0;
            str const s(first);
            EXPECT_TRUE((s == second) == (std::string(first) == second) && s.icmp(second) == same &&
                        s.icmp(str(second)) == same)
                << first << " / " << second;
        }
}

TEST(str, arguments_out_of_any_range) {
    str const s = str("xx0123456789").substr(2), records("A: 1\r\nb : 2\r\n 3\r\nc: 4\r\n\r\n"), nine("9");
    expect_all({
        {s.substr(INT_MIN, INT_MAX), ""},
        {s.substr(1, INT_MAX), "123456789"},
        {s.rightstr(INT_MIN), ""},
        {s.get_field(INT_MAX, '3'), ""},
        {s.get_line(-1), ""},
        {records.get_record(str("z"), str("B"), ':', str::lws), "b : 2\r\n 3"},
        {records.get_record(str("b"), str::null, ':', str::null), ""},
        {records.set_record_content(str("z"), str("a"), nine, ':', str::space), "A: 9\r\nb : 2\r\n 3\r\nc: 4\r\n\r\n"},
        {records.set_record_content(str("b "), str::null, nine, ':', str::null), "A: 1\r\nb :9\r\nc: 4\r\n\r\n"},
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
        {str::sprintf("%d,%3d,%03d,%0d,%00d", arg_int(-1), 7, 7, 0, 12), "-1,007,007,0,12"},
        {str::sprintf("[%12d][%012d][%3d][%3d]", 7, 7, -5, 12345), "[           7][7][-05][12345]"},
        {str::sprintf("%u %9u", 4294967295u, 7u), "4294967295 7"},
        {str::sprintf("%x %x %x %x", 0u, 0xAu, 0x12345u, 0xFEDCBA98u), "0000 000A 2345 BA98"},
        {str::sprintf("%s|%S|%S", arg_str(data), "text", static_cast<char const*>(nullptr)), "\0\xAB\\|text|"s},
        {str::sprintf("%h %H %h", arg_str(data), arg_str(data), arg_str(str::null)), "00ab5c 00AB5C "},
        {str::sprintf("%c%c%%%", 'a', 0x1FF), "a\xFF%"},
        {str::sprintf("%i%5q%X%d", 8), "8"},  // unknown ones consume nothing
    });
}

constexpr int classes = str::class_count;

std::size_t at(int i) {
    return static_cast<std::size_t>(i);
}

/// Expects that every free block is of its list's class and none is listed twice. Allocates nothing itself. The blocks
/// of each class that are in use.
std::array<int, classes> check_free_lists() {
    static std::array<str::reference const*, 1 << 17> seen;
    std::array<int, classes> used{};
    for (int bin = 0; bin < classes; ++bin) {
        str::size_class const& own = str::block_size[bin];
        auto end = seen.begin();
        for (auto const* block = own.free_head; block && end != seen.end(); block = block->next_free) {
            EXPECT_EQ(block->capacity, own.size);
            *end++ = block;
        }
        used[at(bin)] = own.created - static_cast<int>(end - seen.begin());
        EXPECT_GE(used[at(bin)], 0) << "class " << own.size;
        std::sort(seen.begin(), end);
        EXPECT_EQ(std::adjacent_find(seen.begin(), end), end) << "listed twice, class " << own.size;
    }
    return used;
}

// ---- the pool

TEST(pool, classes_and_what_is_kept_of_them) {
    str owner;
    for (int size = -3, bin = 0; size < 600000; ++size) {
        auto const capacity = [&] { return bin < 13 ? (32 << bin) - 16 : (bin - 10) * 65536 - 16; };
        while (bin < classes && capacity() < size)
            ++bin;
        ASSERT_EQ(str::find_bin(size), bin) << size;
        bool const large = bin == classes;
        int const expected = large ? (size + 32767) / 32768 * 32768 : capacity();
        if (size % 997 != 0 && size != expected && size != expected + 1)
            continue;
        std::uint64_t allocated = 0;
        int larges = 0;
        // The second takes what the first gave back, unless it is a large one.
        for (int time = 0; time < 2; ++time) {
            allocated = str::allocated_size;
            larges = str::large_blocks;
            str::reference* const block = str::get_cstring_static(size, &owner);
            ASSERT_TRUE(block->owner == &owner && block->capacity == expected && block->flags == 0) << size;
            std::memset(block->data(), 0xAA, at(expected));
            block->flags = 1;
            str::release_cstring(block);
        }
        ASSERT_EQ(str::allocated_size - allocated, large ? static_cast<unsigned>(expected) : 0u) << size;
        ASSERT_EQ(str::large_blocks - larges, large) << size;
    }
    check_free_lists();
}

TEST(pool, new_gives_aligned_memory_of_every_size) {
    dice random(2);
    std::array<std::pair<unsigned char*, std::size_t>, 300> live{};
    for (int i = 0; i < 60000; ++i) {
        auto& [p, size] = live[at(random.below(300))];
        auto const mark = static_cast<unsigned char>(size * 7);
        ASSERT_TRUE(!p || (std::all_of(p, p + size, [mark](unsigned char c) { return c == mark; })));
        size % 2 ? ::operator delete(p) : std::allocator<unsigned char>().deallocate(p, size);
        size = at(random.chance(88) ? random.below(300) : random.below(500000) >> random.below(19));
        p = static_cast<unsigned char*>(::operator new(size));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u);
        std::memset(p, static_cast<unsigned char>(size * 7), size);
    }
    for (auto const& [p, size] : live)
        ::operator delete(p);
    check_free_lists();
}

TEST(pool_death, no_memory_ends_the_process) {
    EXPECT_DEATH(str::malloc(0x80000000u, false), "");
    [[maybe_unused]] void* volatile taken = nullptr;  // or the compiler leaves the request out
    EXPECT_DEATH(taken = ::operator new(SIZE_MAX / 2), "");
    EXPECT_DEATH(static_cast<void>(str::get_cstring_static(INT_MAX, nullptr)), "");
}

// ---- strings that share its blocks

/// A population of strings that share blocks with each other, beside a std::string for each.
class population {
public:
    explicit population(unsigned seed) : random(seed) {}

    void step() {
        std::size_t const a = at(random.below(count)), b = at(random.below(count));
        operate(own[a], model[a], own[b], std::string(model[b]));
        for (std::size_t i = 0; i < own.size(); ++i)
            ASSERT_EQ(to_string(own[i]), model[i]) << "string " << i << " after operation " << operation;
    }

private:
    static constexpr int count = 20;

    /// Sizes around the classes' limits, short ones more often.
    std::string random_bytes() {
        std::string text(at(random.below(4) ? random.below(20) : (32 << random.below(5)) - random.between(14, 18)), 0);
        for (char& c : text)
            c = static_cast<char>(random.word());
        return text;
    }

    void operate(str& s, std::string& m, str const& other, std::string const& other_model) {
        int const length = s.length(), n = random.below(length + 20) - 2;
        auto const byte = static_cast<unsigned char>(random.word());
        operation = random.below(16);
        if (operation == 0) {
            s = other, m = other_model;
            ASSERT_EQ(s.cbuffer(), other.cbuffer());
        } else if (operation == 13) {
            s.drop_front(n);
            m.erase(0, at(std::clamp(n, 0, length)));
        } else if (operation == 14) {
            str taken(std::move(s));
            ASSERT_TRUE(s.empty());
            s = std::move(taken);
        } else if (operation < 3) {
            substring(s, m, other, other_model);
        } else if (operation == 3) {
            s += other, m += other_model;
        } else if (operation == 4) {
            std::string const more = random_bytes();
            s.append(reinterpret_cast<unsigned char const*>(more.data()), static_cast<int>(more.size()));
            m += more;
        } else if (operation == 5) {
            s += byte, m += static_cast<char>(byte);
        } else if (operation == 6) {
            s.set_character(n, byte);
            m.resize(std::max(m.size(), at(std::max(n + 1, 0))));
            n < 0 ? '\0' : m[at(n)] = static_cast<char>(byte);
        } else if (operation == 7) {
            set_length(s, m, n);
        } else if (operation == 8) {
            s.compress();
        } else if (operation == 9) {
            ASSERT_EQ(std::string(s.c_str(), m.size() + 1), m + '\0');
        } else if (operation == 10) {
            s.l_xor(byte, n);
            m.resize(std::max(m.size(), at(std::max(n, 0))));
            std::for_each_n(m.begin(), std::max(n, 0), [&](char& c) { c = static_cast<char>(c ^ byte); });
        } else if (operation == 11) {
            s.writable(9);
            std::fill_n(s.buffer() + length, 9, 'w');
            m.append(9, 'w');
        } else {
            s = to_str(m = random_bytes());
        }
        if (m.size() > 3000)
            s.clear(), m.clear();
    }

    void substring(str& s, std::string& m, str const& other, std::string const& other_model) {
        int const size = other.length(), pos = random.below(size + 8) - 4, n = random.below(size + 8) - 2;
        unsigned char const* const data = other.cbuffer();
        s = other.substr(pos, n);
        int const first = std::max(pos, 0), last = std::min(pos + n, size);
        m = first < last ? other_model.substr(at(first), at(last - first)) : "";
        ASSERT_TRUE(m.empty() || &s == &other || s.cbuffer() == data + first) << "a sub-string copied bytes";
    }

    /// Either done in place or refused; bytes that come into view are whatever the block holds.
    void set_length(str& s, std::string& m, int n) {
        unsigned char const* const data = s.cbuffer();
        s.set_length(n);
        ASSERT_EQ(s.cbuffer(), data);
        if (s.length() == static_cast<int>(m.size()))
            return;
        ASSERT_EQ(s.length(), n);
        m = m.substr(0, at(n)) + to_string(s).substr(std::min(m.size(), at(n)));
    }

    dice random;
    std::array<str, count> own;
    std::array<std::string, count> model;
    int operation = -1;
};

TEST(shared_blocks, random_operations_agree_with_std_string_and_give_memory_back) {
    std::pair<std::array<int, classes>, std::uint64_t> used;
    for (int pass : {0, 1}) {
        seed_range{1, 8}.roll([](dice& random) {
            population strings(random.word());
            for (int i = 0; i < 8000 && !HasFailure(); ++i) {
                strings.step();
                if (i % 500 == 0)
                    check_free_lists();
            }
        });
        auto const before = std::exchange(used, {check_free_lists(), str::allocated_size});
        EXPECT_TRUE(pass == 0 || used == before) << "what is done once more needs no more";
    }
}

/// Whether a block that the pool gives out anew holds this.
bool is_left_over(std::string const& what) {
    std::vector<str> blocks;
    for (int bin = 0; bin < 8; bin++)
        for (int i = 0; i < 20; i++)
            blocks.emplace_back(static_cast<unsigned char const*>(nullptr), str::get_bin_size(bin));
    return std::ranges::any_of(blocks,
                               [&](str const& block) { return to_string(block).find(what) != std::string::npos; });
}

TEST(pool, a_secret_leaves_no_bytes_behind) {
    std::string const key = "kEyMaTeRiAl";
    str command = to_str("before " + key + " after");
    str const neighbour = command.substr(0, 7);
    str shown = command.substr(7, 11);
    {
        str own = shown.take_secret();
        EXPECT_EQ(to_string(own), key);
        EXPECT_EQ(to_string(command), "before " + std::string(11, '\0') + " after");
        str grown = own;
        for (int i = 0; i < 60; i++)
            grown += str("0123456789");
        str const joined = str("in front ") + own;
        str appended("behind ");
        appended += own;
        str const written = str::sprintf("%h %s", arg_str(own), arg_str(appended));
        EXPECT_TRUE(grown.is_secret() && joined.is_secret() && appended.is_secret() && written.is_secret());
        grown = grown.leftstr(11);
        grown.compress();
    }
    EXPECT_FALSE(is_left_over(key));
    EXPECT_FALSE(is_left_over(to_string(utils::bin2hex(to_str(key), false))));
    { str const open = to_str(key); }
    EXPECT_TRUE(is_left_over(key)) << "what is no secret stays";
}

}  // namespace
