#pragma once

#include <cstddef>
#include <cstring>

/// Overwrites memory that held a secret with zeros; the compiler can't leave it out as a write that nobody reads.
inline void wipe(void* memory, std::size_t bytes) {
    std::memset(memory, 0, bytes);
    asm volatile("" : : "r"(memory) : "memory");
}

/// Wipes what finished calls left on the stack below the caller, as far as the key set-up of a cipher reaches down.
[[gnu::noinline]] inline void wipe_stack() {
    unsigned char left_over[2048];  // chosen: the deepest chain of calls under srtp_init() takes less than half of it
    wipe(left_over, sizeof left_over);
}
