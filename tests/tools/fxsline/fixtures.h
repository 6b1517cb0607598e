#pragma once

#include <stdlib.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include "tests/tools/child.h"

/// What the tests of the simulated lines share.

/// A directory of its own for a test, removed with what is in it at the end.
class temporary_directory {
public:
    temporary_directory() { directory = mkdtemp(name); }
    ~temporary_directory() {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    std::string path(std::string const& file) const { return directory + "/" + file; }

private:
    char name[32] = "/tmp/fxsline_test_XXXXXX";
    std::string directory;
};

/// What a system call returned, or -errno.
inline long result_of(ssize_t returned) {
    return returned < 0 ? -errno : returned;
}

/// Writes with one system call.
inline long write_text(std::string const& path, std::string const& text) {
    int const fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    long const result = result_of(write(fd, text.data(), text.size()));
    close(fd);
    return result;
}

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

/// fxsline as a user runs it.
inline child start_fxsline(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), FXSLINE_PROGRAM);
    return child(arguments);
}
