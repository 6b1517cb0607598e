#pragma once

#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

inline std::string contents(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

using samples = std::vector<std::int16_t>;

/// first, first + 1, ...: samples that tell where they came from.
inline samples counting(std::size_t count, std::int16_t first = 1) {
    samples values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}
