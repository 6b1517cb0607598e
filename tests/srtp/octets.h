#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>

#include "lib/bytes.h"
#include "lib/str.h"

/// What the SRTP tests write byte strings with.

/// The bytes of a text of hex digits; blanks are skipped.
inline str hex(char const* text) {
    str octets, digits;
    for (; *text; text++)
        if (*text != ' ')
            digits += *text;
    for (int i = 0; i < digits.length(); i += 2)
        octets += static_cast<unsigned char>(std::stoi(digits.substr(i, 2).c_str(), nullptr, 16));
    return octets;
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
