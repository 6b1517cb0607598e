#pragma once

#include <cstdint>

/// Arithmetic of the report statistics.

/// Sum modulo 2^32 or 2^64.
constexpr int wrapping_sum(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
constexpr long long wrapping_sum(long long a, long long b) {
    return static_cast<long long>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

/// a / b, rounded; 0 without a divisor.
constexpr int rounded(long long a, long long b) {
    return b == 0 ? 0 : static_cast<int>((a + b / 2) / b);
}
