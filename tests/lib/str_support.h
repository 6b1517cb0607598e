#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/str.h"

inline std::string plain(str const& s) {
    return {reinterpret_cast<char const*>(s.cbuffer()), static_cast<std::size_t>(s.length())};
}

/// From bytes that may hold a NUL.
inline str bytes(std::string const& s) {
    return str(reinterpret_cast<unsigned char const*>(s.data()), static_cast<int>(s.size()));
}

struct text_case {
    str actual;
    std::string expected;
};

inline void expect_all(std::vector<text_case> const& cases) {
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(plain(cases[i].actual), cases[i].expected) << "case " << i;
}
