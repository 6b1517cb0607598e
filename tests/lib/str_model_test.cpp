#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "lib/str.h"
#include "tests/lib/pool_check.h"
#include "tests/support/bytes.h"
#include "tests/support/seed.h"

namespace {

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
    static std::size_t at(int i) { return static_cast<std::size_t>(i); }
    unsigned char byte() { return static_cast<unsigned char>(random.word()); }

    /// Sizes around the classes' limits, short ones more often.
    std::string random_bytes() {
        std::string text(
            at(random.below(4) ? random.below(20) : (32 << random.below(5)) - random.between(14, 18)), 0);
        for (char& c : text)
            c = static_cast<char>(byte());
        return text;
    }

    void operate(str& s, std::string& m, str const& other, std::string const& other_model) {
        int const length = s.length();
        operation = random.below(15);
        switch (operation) {
            case 0:
                s = other;
                m = other_model;
                ASSERT_EQ(s.cbuffer(), other.cbuffer());
                break;
            case 1:
            case 2: substring(s, m, other, other_model); break;
            case 3: s += other, m += other_model; break;
            case 4: {
                std::string const more = random_bytes();
                s.append(reinterpret_cast<unsigned char const*>(more.data()), static_cast<int>(more.size()));
                m += more;
                break;
            }
            case 5: s += m.c_str()[0], m += m.c_str()[0]; break;
            case 6: set_character(s, m, random.below(length + 20) - 2, byte()); break;
            case 7: set_length(s, m, random.below(length + 10) - 1); break;
            case 8:
            case 9: s.compress(); break;
            case 10: ASSERT_EQ(std::string(s.c_str(), m.size() + 1), m + '\0'); break;
            case 11: {
                int const n = random.below(length + 10);
                unsigned char const key = byte();
                s.l_xor(key, n);
                m.resize(std::max(m.size(), at(n)));
                std::transform(m.begin(), m.begin() + n, m.begin(),
                               [key](char c) { return static_cast<char>(c ^ key); });
                break;
            }
            case 12:
                s.writable(9);
                std::fill_n(s.buffer() + length, 9, 'w');
                m.append(9, 'w');
                break;
            default:
                m = random_bytes();
                s = to_str(m);
                break;
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
        m = m.substr(0, at(n)) + to_string(s).substr(std::min(m.size(), at(n)));
    }

    dice random;
    std::array<str, count> own;
    std::array<std::string, count> model;
    int operation = -1;
};

TEST(str_model, random_operations) {
    seed_range{1, 8}.roll([](dice& random) {
        population strings(random.word());
        for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
            strings.step();
            if (i % 500 == 0)
                check_free_lists();
        }
    });
}

TEST(str_model, memory_settles_and_comes_back) {
    auto const run = [] {
        population strings(7);
        for (int i = 0; i < 3000; ++i)
            strings.step();
    };
    run();
    auto const used = blocks_in_use();
    auto const total = str::allocated_size;
    run();
    EXPECT_EQ(str::allocated_size, total);
    EXPECT_EQ(blocks_in_use(), used);
}

}  // namespace
