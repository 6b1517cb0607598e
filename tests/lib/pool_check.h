#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "lib/str.h"

/// Blocks of each size class that are in use.
inline std::array<int, str::class_count> blocks_in_use() {
    std::array<int, str::class_count> used{};
    for (std::size_t bin = 0; bin < used.size(); ++bin) {
        used[bin] = str::block_size[bin].created;
        for (auto const* block = str::block_size[bin].free_head; block; block = block->next_free)
            --used[bin];
    }
    return used;
}

/// Expects that every free block is of its list's class, that none is listed twice and that no list is longer than
/// the number of blocks made. Allocates nothing itself.
inline void check_free_lists() {
    static std::array<str::reference const*, 1 << 17> seen;
    for (str::size_class const& own : str::block_size) {
        std::size_t count = 0;
        for (auto const* block = own.free_head; block && count < seen.size(); block = block->next_free) {
            ASSERT_EQ(block->capacity, own.size);
            seen[count++] = block;
        }
        ASSERT_LE(count, static_cast<std::size_t>(own.created)) << "class " << own.size;
        auto* const end = seen.begin() + count;
        std::sort(seen.begin(), end);
        ASSERT_EQ(std::adjacent_find(seen.begin(), end), end) << "listed twice, class " << own.size;
    }
}
