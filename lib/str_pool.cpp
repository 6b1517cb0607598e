#include <climits>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "lib/str.h"
#include "lib/wipe.h"

#if defined(__SANITIZE_ADDRESS__)
#define FXS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FXS_ADDRESS_SANITIZER 1
#endif
#endif
#ifdef FXS_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

constinit str::size_class str::block_size[class_count] = {
    {16, nullptr, 0},     {48, nullptr, 0},     {112, nullptr, 0},    {240, nullptr, 0},    {496, nullptr, 0},
    {1008, nullptr, 0},   {2032, nullptr, 0},   {4080, nullptr, 0},   {8176, nullptr, 0},   {16368, nullptr, 0},
    {32752, nullptr, 0},  {65520, nullptr, 0},  {131056, nullptr, 0}, {196592, nullptr, 0}, {262128, nullptr, 0},
    {327664, nullptr, 0}, {393200, nullptr, 0}, {458736, nullptr, 0},
};
constinit std::int32_t str::large_blocks = 0;
constinit std::uint64_t str::allocated_size = 0;

namespace {

// AddressSanitizer is told which bytes of the pool nobody may touch, so that recycling blocks does not hide a use after
// free or an overrun.
#ifdef FXS_ADDRESS_SANITIZER
void poison(void const* p, std::size_t bytes) {
    __asan_poison_memory_region(p, bytes);
}
void unpoison(void const* p, std::size_t bytes) {
    __asan_unpoison_memory_region(p, bytes);
}
#else
void poison(void const*, std::size_t) {}
void unpoison(void const*, std::size_t) {}
#endif

/// Large blocks are a multiple of this many bytes.
constexpr int large_step = 32768;

int large_capacity(int size) {
    if (size > INT_MAX - (large_step - 1))
        std::abort();
    return (size + large_step - 1) / large_step * large_step;
}

str::reference* new_block(int capacity) {
    str::allocated_size += static_cast<std::uint64_t>(capacity);
    void* const memory = std::malloc(sizeof(str::reference) + static_cast<std::size_t>(capacity));
    if (!memory)
        std::abort();
    auto* const block = static_cast<str::reference*>(memory);
    block->capacity = capacity;
    return block;
}

}  // namespace

int str::get_bin_size(int bin) {
    return bin >= 0 && bin < class_count ? block_size[bin].size : 0;
}

str::reference* str::get_cstring_static(int size, str* owner) {
    int const bin = find_bin(size);
    reference* block;
    if (bin == class_count) {
        ++large_blocks;
        block = new_block(large_capacity(size));
    } else if (size_class& own = block_size[bin]; own.free_head) {
        block = own.free_head;
        own.free_head = block->next_free;
        block->capacity = own.size;
        unpoison(block->data(), static_cast<std::size_t>(own.size));
    } else {
        ++own.created;
        block = new_block(own.size);
    }
    block->owner = owner;
    block->flags = 0;
    return block;
}

void str::release_cstring(reference* block) {
    if (block->flags & flag_secret)
        wipe(block->data(), static_cast<std::size_t>(block->capacity));
    int const bin = find_bin(block->capacity);
    if (bin == class_count) {
        std::free(block);
        return;
    }
    poison(block->data(), static_cast<std::size_t>(block->capacity));
    block->next_free = block_size[bin].free_head;
    block_size[bin].free_head = block;
}

void* str::malloc(unsigned size, bool array) {
    if (size > INT_MAX)
        std::abort();
    reference* const block = get_cstring_static(static_cast<int>(size), nullptr);
    block->flags = array ? flags_malloc_array : flags_malloc;
    poison(block->data() + size, static_cast<unsigned>(block->capacity) - size);
    return block->data();
}

void str::free(void* p) {
    if (p)
        release_cstring(static_cast<reference*>(p) - 1);
}

str str::statistics() {
    unsigned total = 0;
    str classes;
    for (size_class const& own : block_size) {
        total += static_cast<unsigned>(own.size) * static_cast<unsigned>(own.created);
        classes += sprintf(" %d/%d", own.size, own.created);
    }
    return sprintf("%u:%s %d", total, arg_str(classes), large_blocks);
}

// Every new and delete of the process goes through the pool. None of them ever returns null.

namespace {
void* allocate(std::size_t size) {
    return str::malloc(size > UINT_MAX ? UINT_MAX : static_cast<unsigned>(size), true);
}
}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return allocate(size);
}
void operator delete(void* p) noexcept {
    str::free(p);
}
void operator delete[](void* p) noexcept {
    str::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    str::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    str::free(p);
}
void operator delete(void* p, std::nothrow_t const&) noexcept {
    str::free(p);
}
void operator delete[](void* p, std::nothrow_t const&) noexcept {
    str::free(p);
}
