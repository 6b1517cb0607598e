#pragma once

#include <cstddef>
#include <cstdint>

/// FNV-1a, 64 bits, of integers' bytes in little-endian order: one number that stands for many.
struct digest {
    std::uint64_t value = 14695981039346656037u;

    void add(auto const& integers) {
        for (auto const each : integers)
            for (std::size_t i = 0; i < sizeof each; i++)
                value = (value ^ (each >> 8 * i & 0xFF)) * 1099511628211u;
    }
};
