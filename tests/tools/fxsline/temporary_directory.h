// A directory of its own for a test, removed with what is in it at the end.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

class temporary_directory {
public:
    temporary_directory() { path_ = mkdtemp(name_); }
    ~temporary_directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string path(const std::string& name) const { return path_ + "/" + name; }

private:
    char name_[32] = "/tmp/fxsline_test_XXXXXX";
    std::string path_;
};
