#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "lib/poison.h"
#include "lib/str.h"
#include "tests/lib/pool_check.h"

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
    EXPECT_EQ(str::find_bin(INT_MAX), str::class_count);
    EXPECT_EQ(str::find_bin(INT_MIN), 0);
    for (int i = 0; i < str::class_count; ++i)
        EXPECT_EQ(str::get_bin_size(i), expected[i]);
    EXPECT_EQ(str::get_bin_size(-1) + str::get_bin_size(str::class_count), 0);
}

TEST(pool, released_block_is_taken_again) {
    str owner;
    for (int size : {0, 16, 17, 48, 1500, 131057, 458736}) {
        str::reference* const block = str::get_cstring_static(size, &owner);
        EXPECT_EQ(block->owner, &owner);
        EXPECT_EQ(block->flags, 0u);
        EXPECT_EQ(block->capacity, str::get_bin_size(str::find_bin(size)));
        std::memset(block->data(), 0xAA, static_cast<std::size_t>(block->capacity));
        block->flags = 1;
        str::release_cstring(block);
        std::uint64_t const before = str::allocated_size;
        str::reference* const again = str::get_cstring_static(size, nullptr);
        EXPECT_EQ(again, block);
        EXPECT_EQ(again->flags, 0u);
        EXPECT_EQ(str::allocated_size, before);
        str::release_cstring(again);
    }
    check_free_lists();
}

TEST(pool, large_blocks_go_back_to_the_system) {
    struct {
        int size, capacity;
    } const cases[] = {{458737, 458752}, {458752, 458752}, {458753, 491520}, {3000000, 3014656}};
    for (auto const& c : cases) {
        std::int32_t const count = str::large_blocks;
        std::uint64_t const total = str::allocated_size;
        [[maybe_unused]] auto const mapped = mallinfo2().hblkhd;
        for (int i = 1; i <= 2; ++i) {
            str::reference* const block = str::get_cstring_static(c.size, nullptr);
            EXPECT_EQ(block->capacity, c.capacity);
            EXPECT_EQ(str::large_blocks, count + i);
            EXPECT_EQ(str::allocated_size,
                      total + static_cast<std::uint64_t>(c.capacity) * static_cast<unsigned>(i));
            str::release_cstring(block);
        }
#ifndef FXS_ADDRESS_SANITIZER
        EXPECT_EQ(mallinfo2().hblkhd, mapped);
#endif
    }
}

TEST(pool, malloc_marks_its_blocks) {
    for (bool array : {false, true}) {
        void* const p = str::malloc(40, array);
        auto const* const block = static_cast<str::reference*>(p) - 1;
        EXPECT_EQ(block->owner, nullptr);
        EXPECT_EQ(block->flags, array ? 13u : 5u);
        EXPECT_EQ(block->capacity, 48);
        str::free(p);
    }
    str::free(nullptr);
    void* volatile const object = ::operator new(4);
    EXPECT_EQ((static_cast<str::reference*>(object) - 1)->flags, 13u);
    ::operator delete(object);
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
    std::vector<int> sorted(1000);
    std::stable_sort(sorted.begin(), sorted.end());  // asks with nothrow, gives back without
}

TEST(pool, statistics) {
    str const text = str::statistics();
    str const expected_total(text.get_field(0, ':'));
    unsigned total = 0;
    for (int i = 0; i < str::class_count; ++i) {
        str const entry = text.get_field(i + 1, ' ');
        EXPECT_EQ(entry.get_field(0, '/').value(), str::get_bin_size(i));
        total += entry.get_field(0, '/').unsigned_value() * entry.get_field(1, '/').unsigned_value();
    }
    EXPECT_EQ(expected_total.unsigned_value(), total);
    EXPECT_GT(total, 0u);
    EXPECT_EQ(text.get_rest(str::class_count + 1, ' ').value(), str::large_blocks);
    EXPECT_EQ(text.find(str(": 16/")), expected_total.length());
}

TEST(pool_death, no_memory_ends_the_process) {
    EXPECT_DEATH(str::malloc(0x80000000u, false), "");
    EXPECT_DEATH(static_cast<void>(::operator new(SIZE_MAX / 2)), "");
    EXPECT_DEATH(static_cast<void>(str::get_cstring_static(INT_MAX, nullptr)), "");
}

#ifdef FXS_ADDRESS_SANITIZER
TEST(pool, unused_bytes_are_poisoned) {
    for (unsigned size : {1u, 16u, 40u, 48u, 1500u}) {
        auto* const p = static_cast<unsigned char*>(str::malloc(size, true));
        auto const capacity = static_cast<unsigned>(str::get_bin_size(str::find_bin(static_cast<int>(size))));
        for (unsigned i = 0; i < capacity; ++i)
            ASSERT_EQ(__asan_address_is_poisoned(p + i), i >= size) << i << " of " << size;
        str::free(p);
        for (unsigned i = 0; i < capacity; ++i)
            ASSERT_TRUE(__asan_address_is_poisoned(p + i)) << i << " of " << size;
    }
    str s('x', 30);
    unsigned char const* const data = s.cbuffer();
    EXPECT_FALSE(__asan_address_is_poisoned(data + 47));  // a string may grow into the whole block
    s.clear();
    EXPECT_TRUE(__asan_address_is_poisoned(data));
}
#endif

}  // namespace
