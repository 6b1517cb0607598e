#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

#include "lib/str.h"
#include "tests/lib/pool_check.h"
#include "tests/lib/str_support.h"
#include "tests/support/seed.h"

namespace {

/// A population of strings that share blocks with each other, beside a std::string for each.
class population {
public:
    explicit population(unsigned seed) : random(seed) {}

    void step() {
        int const a = below(count), b = below(count);
        str& s = own[at(a)];
        std::string& m = model[at(a)];
        operate(s, m, own[at(b)], std::string(model[at(b)]));
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(plain(own[at(i)]), model[at(i)]) << "string " << i << " after operation " << operation;
    }

private:
    static constexpr int count = 20;
    static std::size_t at(int i) { return static_cast<std::size_t>(i); }
    int below(int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); }
    unsigned char byte() { return static_cast<unsigned char>(random()); }

    /// Sizes around the classes' limits, short ones more often.
    std::string random_bytes() {
        std::string text(at(below(4) ? below(20) : (32 << below(5)) - 18 + below(5)), 0);
        for (char& c : text)
            c = static_cast<char>(byte());
        return text;
    }
    static str from(std::string const& text) {
        return str(reinterpret_cast<unsigned char const*>(text.data()), static_cast<int>(text.size()));
    }

    void operate(str& s, std::string& m, str const& other, std::string const& other_model) {
        int const length = s.length();
        operation = below(16);
        switch (operation) {
            case 0:
                s = other;
                m = other_model;
                ASSERT_EQ(s.cbuffer(), other.cbuffer());
                break;
            case 1:
            case 2: substring(s, m, other, other_model); break;
            case 3:
                s += other;
                m += other_model;
                break;
            case 4: {
                std::string const more = random_bytes();
                s.append(reinterpret_cast<unsigned char const*>(more.data()), static_cast<int>(more.size()));
                m += more;
                break;
            }
            case 5: {
                unsigned char const c = byte();
                s += c;
                m += static_cast<char>(c);
                break;
            }
            case 6: set_character(s, m, below(length + 20) - 2, byte()); break;
            case 7: set_length(s, m, below(length + 10) - 1); break;
            case 8:
            case 9: s.compress(); break;
            case 10: ASSERT_EQ(std::string(s.c_str(), m.size() + 1), m + '\0'); break;
            case 11: {
                int const n = below(length + 10);
                unsigned char const key = byte();
                s.l_xor(key, n);
                m.resize(std::max(m.size(), at(n)));
                for (int i = 0; i < n; ++i)
                    m[at(i)] = static_cast<char>(m[at(i)] ^ key);
                break;
            }
            case 12: {
                int const n = below(30);
                s.writable(n);
                std::fill_n(s.buffer() + length, n, 'w');
                m.append(at(n), 'w');
                break;
            }
            case 13: {
                str copy = s;
                copy.set_character(0, '!');
                s = copy + other;
                if (m.empty())
                    m = "!";
                m[0] = '!';
                m += other_model;
                break;
            }
            default:
                m = random_bytes();
                s = from(m);
                break;
        }
        if (m.size() > 3000) {
            s.clear();
            m.clear();
        }
    }

    void substring(str& s, std::string& m, str const& other, std::string const& other_model) {
        int const size = other.length();
        int const pos = below(size + 8) - 4, n = below(size + 8) - 2;
        unsigned char const* const data = other.cbuffer();
        s = other.substr(pos, n);
        int const first = std::max(pos, 0), last = std::min(pos + n, size);
        m = first < last ? other_model.substr(at(first), at(last - first)) : "";
        if (!m.empty() && &s != &other) {
            ASSERT_EQ(s.cbuffer(), data + first) << "a sub-string copied bytes";
        }
    }

    void set_character(str& s, std::string& m, int i, unsigned char c) {
        s.set_character(i, c);
        if (i < 0)
            return;
        m.resize(std::max(m.size(), at(i) + 1));
        m[at(i)] = static_cast<char>(c);
    }

    /// Either done in place or refused; bytes that come into view are whatever the block holds.
    void set_length(str& s, std::string& m, int n) {
        unsigned char const* const data = s.cbuffer();
        s.set_length(n);
        ASSERT_EQ(s.cbuffer(), data);
        if (s.length() == static_cast<int>(m.size()))
            return;
        ASSERT_EQ(s.length(), n);
        m = m.substr(0, at(n)) + plain(s).substr(std::min(m.size(), at(n)));
    }

    std::mt19937 random;
    std::array<str, count> own;
    std::array<std::string, count> model;
    int operation = -1;
};

TEST(str_model, random_operations) {
    seed_range{1, 8}.for_each([](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        population strings(seed);
        for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
            strings.step();
            if (i % 500 == 0)
                check_free_lists();
        }
    });
}

void run(unsigned seed) {
    population strings(seed);
    for (int i = 0; i < 3000; ++i)
        strings.step();
}

// A load that has been carried once asks the system for nothing more, and every block comes back.
TEST(str_model, memory_settles_and_comes_back) {
    run(7);
    auto const used = blocks_in_use();
    auto const total = str::allocated_size;
    for (int i = 0; i < 3; ++i)
        run(7);
    EXPECT_EQ(str::allocated_size, total);
    EXPECT_EQ(blocks_in_use(), used);
    check_free_lists();
}

TEST(str_model, writing_in_place_or_not) {
    str s('a', 10);
    unsigned char const* const data = s.cbuffer();
    s += str("bcdef");
    s += 'g';  // fills the block of 16
    EXPECT_EQ(s.cbuffer(), data);
    s += 'h';
    EXPECT_NE(s.cbuffer(), data);

    str const shared = s;
    unsigned char const* const common = s.cbuffer();
    s.writable(0);
    EXPECT_NE(s.cbuffer(), common);
    EXPECT_EQ(shared.cbuffer(), common);

    str part = shared.substr(3, 2);
    part += 'x';
    EXPECT_EQ(plain(part), "aax");
    EXPECT_EQ(plain(shared), "aaaaaaaaaabcdefgh");

    str tail = s.substr(15);  // alone on the block: bytes in front of it stay unused
    s.clear();
    unsigned char const* const behind = tail.cbuffer();
    tail += str('y', 30);
    EXPECT_EQ(tail.cbuffer(), behind);
    tail += 'z';
    tail += 'z';
    EXPECT_NE(tail.cbuffer(), behind);
    EXPECT_EQ(plain(tail), "gh" + std::string(30, 'y') + "zz");

    str none;
    EXPECT_EQ(none.buffer(), static_cast<str const&>(none).cbuffer());
    EXPECT_TRUE(none.empty());
}

// Each row: bytes of the whole string, how many members share its last 10 bytes when the whole one is gone, whether a
// pointer was handed out, and whether compress() then moves them.
TEST(str_model, compress_moves_what_saves_a_class) {
    struct {
        int whole, members;
        bool held, moves;
    } const cases[] = {
        {16, 1, false, false},    {48, 1, false, true},     {1000, 1, true, false},
        {1000, 16, false, true},  {1000, 17, false, false}, {458737, 1, false, false},
        {458736, 3, false, true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.whole << " bytes, " << c.members << " members");
        str members[17];
        {
            str whole('.', c.whole - 10);
            whole += str("0123456789");
            if (c.held)
                whole.buffer();
            for (int i = 0; i < c.members; ++i)
                members[i] = whole.rightstr(10 - i % 3);
        }
        unsigned char const* const before = members[0].cbuffer();
        members[c.members / 2].compress();
        EXPECT_EQ(members[0].cbuffer() != before, c.moves);
        for (int i = 0; i < c.members; ++i) {
            EXPECT_EQ(plain(members[i]), std::string("0123456789").substr(static_cast<std::size_t>(i % 3)));
            EXPECT_EQ(members[i].cbuffer(), members[0].cbuffer() + i % 3);
        }
    }
    // The span of all members counts, not this one's; it must fit the next smaller class.
    for (int span : {496, 497}) {
        str whole('x', 1008);
        str head = whole.leftstr(1), tail = whole.substr(span - 1, 1);
        whole.clear();
        unsigned char const* const before = head.cbuffer();
        head.compress();
        EXPECT_EQ(head.cbuffer() != before, span == 496);
        EXPECT_EQ(tail.cbuffer(), head.cbuffer() + span - 1);
    }
    str().compress();
    check_free_lists();
}

}  // namespace
