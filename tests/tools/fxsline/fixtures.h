#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

/// A directory of its own for a test, removed with what is in it at the end.
class temporary_directory {
public:
    ~temporary_directory() { std::filesystem::remove_all(directory); }
    std::string path(std::string const& file) const { return directory + "/" + file; }

private:
    char name[32] = "/tmp/fxsline_test_XXXXXX";
    std::string directory = mkdtemp(name);
};

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
