#include <csignal>

#include <sys/resource.h>

#include "tests/support/control_peer.h"
#include "tests/support/temporary_directory.h"

namespace {

using lines = std::vector<std::string>;

struct str_file : testing::Test {
    std::string name(char const* below) const { return root.path(below); }
    str path(char const* below) const { return to_str(name(below)); }

    temporary_directory const root;
    control_peer log{1};
};

TEST_F(str_file, what_is_written_is_read_back) {
    for (str const& content : {str('x', 262144), str::x_00 + str("b"), str()}) {
        ASSERT_TRUE(str::write_file(content, path("new\\deep/file")));
        EXPECT_TRUE(str::read_file(path("new/deep\\file"), false) == content);
        EXPECT_EQ(str::file_size(path("new\\deep\\file")), content.length());
    }
    EXPECT_EQ(to_string(str::list_directory(path("new/"), true)), "deep dir\n");
    EXPECT_EQ(to_string(str::list_directory(path("new\\deep"), false)), "file\n");
    EXPECT_TRUE(str::rename_file(path("new\\deep\\file"), path("moved")));
    EXPECT_TRUE(str::remove_file(path(".\\moved"), false));
    EXPECT_FALSE(str::read_file(str("/proc/self/environ"), false).empty()) << "it reports size 0";
    EXPECT_EQ(log.log_lines(), lines{});
}

TEST_F(str_file, failures_give_nothing_and_are_logged) {
    for (char const* const unreadable : {"/proc/self/mem", "/", "/dev/null"})
        EXPECT_TRUE(str::read_file(str(unreadable), false).empty()) << unreadable;
    EXPECT_TRUE(str::read_file(path("x"), true).empty() && !str::remove_file(path("x"), true));
    EXPECT_TRUE(str::list_directory(path("x"), true).empty() && str::file_size(path("x")) == 0);
    EXPECT_EQ(log.log_lines(), lines{});
    EXPECT_TRUE(str::read_file(path("x"), false).empty());
    EXPECT_FALSE(str::write_file(str("x"), str("/dev/null/x")));
    EXPECT_FALSE(str::remove_file(path("x"), false));
    EXPECT_FALSE(str::rename_file(path("x"), path("y")));
    EXPECT_EQ(log.log_lines(),
              (lines{"1 Could not fstat " + name("x"), "1 Could not open /dev/null/x for writing",
                     "1 Cannot remove file " + name("x"), "1 Cannot rename file " + name("x") + " to " + name("y")}));
}

/// No file grows beyond so many bytes: writes end short, as on a full disk.
bool write_within(rlim_t room, int bytes, str const& path) {
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    rlimit const small{room, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    bool const written = str::write_file(str('x', bytes), path);
    setrlimit(RLIMIT_FSIZE, &usual);
    return written;
}

TEST_F(str_file, on_a_full_disk_none_is_left_in_part) {
    auto const before = std::signal(SIGXFSZ, SIG_IGN);
    constexpr int piece = 262144, no_space = 28;  // the size of a write, the number that tells a full system
    std::string const full = "1 File system full while writing ", other = "1 Could not write ";
    struct {
        int room, bytes;
        std::string logged;
    } const table[] = {{100, 100, ""},
                       {0, 100, other},
                       {no_space - 1, 100, other},
                       {no_space, 100, full},
                       {piece + no_space, piece + 100, full},
                       {piece, 2 * piece, other},
                       {2 * piece, 2 * piece, ""}};
    for (auto const& [room, bytes, logged] : table) {
        bool const fits = logged.empty();
        EXPECT_EQ(write_within(static_cast<rlim_t>(room), bytes, path("file")), fits) << room;
        EXPECT_EQ(str::file_size(path("file")), fits ? bytes : 0) << room;
        EXPECT_EQ(log.log_lines(), fits ? lines{} : lines{logged + name("file")}) << room;
        EXPECT_EQ(std::filesystem::remove(name("file")), fits);
    }
    std::filesystem::create_symlink("/dev/full", name("file"));
    EXPECT_FALSE(str::write_file(str('x', no_space), path("file")));
    EXPECT_EQ(log.log_lines(), lines{other + name("file")});
    EXPECT_TRUE(std::filesystem::is_empty(name("")));
    std::signal(SIGXFSZ, before);
}

}  // namespace
