#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <random>

#include "lib/bytes.h"
#include "tests/support/bytes.h"

/// What the SRTP tests write byte strings with.

/// The bytes of a text of hex digits; blanks are skipped.
inline str hex(char const* text) {
    return to_str(from_hex(text));
}

inline str random_octets(std::mt19937& random, int n) {
    str octets;
    for (int i = 0; i < n; i++)
        octets += static_cast<unsigned char>(random());
    return octets;
}

inline int below(std::mt19937& random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

/// How GoogleTest shows a str.
inline void PrintTo(str const& octets, std::ostream* out) {
    *out << utils::bin2hex(octets, false).c_str();
}
