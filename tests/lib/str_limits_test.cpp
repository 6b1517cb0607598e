#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "lib/str.h"
#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"
#include "tests/support/stepped_lines.h"

namespace {

/// While it lives, no file of this program can grow beyond that size: writes end short, as on a full disk.
struct file_size_limit {
    explicit file_size_limit(rlim_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &usual);
        rlimit const small{bytes, usual.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    }
    ~file_size_limit() {
        setrlimit(RLIMIT_FSIZE, &usual);
        std::signal(SIGXFSZ, handler);
    }
    rlimit usual{};
    void (*handler)(int);
};

TEST(full_disk, a_file_that_could_not_be_written_whole_is_removed) {
    control_peer log(1);
    std::filesystem::path const directory = make_temporary_directory();
    str const path = to_str((directory / "file").string());
    constexpr int piece = 262144, no_space = 28;  // the size of a write, the number that tells a full system
    struct {
        int room, length;  // bytes
        char const* logged;
    } const table[] = {
        {100, 100, nullptr},
        {0, 100, "1 Could not write "},
        {no_space - 1, 100, "1 Could not write "},
        {no_space, 100, "1 File system full while writing "},
        {no_space + 1, 100, "1 Could not write "},
        {piece + no_space, piece + 100, "1 File system full while writing "},
        {piece, 2 * piece, "1 Could not write "},
        {2 * piece, 2 * piece, nullptr},
    };
    for (auto const& [room, length, logged] : table) {
        {
            file_size_limit const full(static_cast<rlim_t>(room));
            EXPECT_EQ(str::write_file(str('x', length), path), logged == nullptr) << room;
        }
        EXPECT_EQ(str::file_size(path), logged == nullptr ? length : 0) << room;
        EXPECT_EQ(log.log_lines(),
                  logged == nullptr ? std::vector<std::string>{} : std::vector{logged + to_string(path)});
        EXPECT_EQ(std::filesystem::remove(directory / "file"), logged == nullptr);
    }
    std::filesystem::create_symlink("/dev/full", directory / "file");
    EXPECT_FALSE(str::write_file(str('x', no_space), path));
    EXPECT_EQ(log.log_lines(), std::vector{"1 Could not write " + to_string(path)});
    EXPECT_TRUE(std::filesystem::is_empty(directory));
    std::filesystem::remove(directory);
}

TEST(unreadable_files, are_empty) {
    control_peer log(1);
    for (char const* const path : {"/proc/self/mem", "/", "/dev/null"})
        EXPECT_TRUE(str::read_file(str(path), false).empty()) << path;
    EXPECT_EQ(log.log_lines(), std::vector<std::string>{});
}

}  // namespace
