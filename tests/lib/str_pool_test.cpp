#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "lib/bytes.h"
#include "lib/str.h"
#include "tests/lib/pool_check.h"
#include "tests/support/bytes.h"

namespace {

TEST(pool, classes) {
    int expected[str::class_count];
    for (int i = 0; i < str::class_count; ++i)
        expected[i] = i < 13 ? (32 << i) - 16 : (i - 10) * 65536 - 16;
    int bin = 0;
    for (int size = -3; size < 600000; ++size) {
        while (bin < str::class_count && expected[bin] < size)
            ++bin;
        ASSERT_EQ(str::find_bin(size), bin) << size;
    }
}

TEST(pool, released_block_is_taken_again_and_a_large_one_returned) {
    constexpr struct {
        int size, capacity;
    } cases[] = {{0, 16}, {17, 48}, {1500, 2032}, {458736, 458736}, {458737, 458752}, {458753, 491520}};
    str owner;
    for (auto const& [size, capacity] : cases) {
        str::reference* const block = str::get_cstring_static(size, &owner);
        EXPECT_EQ(block->owner, &owner);
        EXPECT_EQ(block->capacity, capacity);
        std::memset(block->data(), 0xAA, static_cast<std::size_t>(capacity));
        block->flags = 1;
        str::release_cstring(block);
        std::uint64_t const before = str::allocated_size;
        int const large = str::large_blocks;
        str::reference* const again = str::get_cstring_static(size, nullptr);
        EXPECT_EQ(again->flags, 0u);
        EXPECT_EQ(str::large_blocks - large, size > 458736);
        EXPECT_EQ(str::allocated_size - before, size > 458736 ? static_cast<unsigned>(capacity) : 0u);
        str::release_cstring(again);
    }
    check_free_lists();
}

TEST(pool, new_gives_aligned_memory_of_every_size) {
    std::mt19937 random(2);
    std::vector<std::pair<unsigned char*, std::size_t>> live(300);
    for (int i = 0; i < 60000; ++i) {
        auto& [p, size] = live[random() % live.size()];
        auto const mark = static_cast<unsigned char>(size * 7);
        ASSERT_TRUE(!p || (std::all_of(p, p + size, [mark](unsigned char c) { return c == mark; })));
        size % 2 ? ::operator delete(p) : std::allocator<unsigned char>().deallocate(p, size);
        size = random() % 8 ? random() % 300 : random() % 500000 >> random() % 19;
        p = static_cast<unsigned char*>(::operator new(size));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u);
        std::memset(p, static_cast<unsigned char>(size * 7), size);
    }
    check_free_lists();
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

/// Whether a block that the pool gives out anew holds this.
bool is_left_over(std::string const& what) {
    std::vector<str> blocks;
    for (int bin = 0; bin < 8; bin++)
        for (int i = 0; i < 20; i++)
            blocks.emplace_back(static_cast<unsigned char const*>(nullptr), str::get_bin_size(bin));
    return std::ranges::any_of(
        blocks, [&](str const& block) { return to_string(block).find(what) != std::string::npos; });
}

TEST(str_pool, a_secret_leaves_no_bytes_behind) {
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
