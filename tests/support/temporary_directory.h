#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

/// A new, empty directory of its own; removed with what is in it at the end.
class temporary_directory {
public:
    temporary_directory() { name = mkdtemp(name.data()); }
    ~temporary_directory() { std::filesystem::remove_all(name); }
    temporary_directory(temporary_directory const&) = delete;
    temporary_directory& operator=(temporary_directory const&) = delete;

    std::string path(std::string const& file = "") const { return name + "/" + file; }

private:
    std::string name = std::filesystem::temp_directory_path() / "fxsmedia_XXXXXX";
};
