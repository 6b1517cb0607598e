#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "lib/str.h"
#include "tests/lib/log_capture.h"
#include "tests/lib/str_support.h"

namespace {

namespace fs = std::filesystem;

class str_file : public testing::Test {
protected:
    str_file() {
        char name[] = "/tmp/str_file_XXXXXX";
        root = mkdtemp(name);
        take_log();
    }
    ~str_file() override { fs::remove_all(root); }

    str path(char const* below) const { return str((root + "/" + below).c_str()); }
    std::string logged(char const* before, char const* below, char const* after = "") const {
        return std::string("1 ") + before + root + "/" + below + after;
    }

    std::string root;
};

TEST_F(str_file, what_is_written_is_read_back) {
    str big;
    for (int i = 0; i < 150000; ++i)
        big.append(reinterpret_cast<unsigned char const*>(&i), sizeof(i));
    for (str const& content : {str(), str::x_00 + str("b"), str('x', 262144), big}) {
        ASSERT_TRUE(str::write_file(content, path("new\\deep/file")));
        EXPECT_TRUE(fs::is_regular_file(root + "/new/deep/file"));
        EXPECT_TRUE(str::read_file(path("new/deep\\file"), false) == content);
        EXPECT_EQ(str::file_size(path("new\\deep\\file")), content.length());
    }
    EXPECT_TRUE(str::write_file(str("short"), path("new/deep/file")));
    EXPECT_EQ(plain(str::read_file(path("new/deep/file"), false)), "short");
    EXPECT_EQ(take_log(), "");
}

TEST_F(str_file, modes_are_left_to_the_umask) {
    mode_t const old = umask(027);
    EXPECT_TRUE(str::write_file(str("x"), path("d/f")));
    umask(old);
    struct stat status;
    ASSERT_EQ(stat((root + "/d").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0750u);
    ASSERT_EQ(stat((root + "/d/f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
}

TEST_F(str_file, special_files_are_read_to_their_end) {
    std::ifstream stream("/proc/self/environ");  // reports size 0
    std::ostringstream expected;
    expected << stream.rdbuf();
    EXPECT_EQ(plain(str::read_file(str("/proc/self/environ"), false)), expected.str());
    EXPECT_GT(str::read_file(str("/proc/self/smaps"), false).length(), 4 * 2048);
    EXPECT_EQ(str::file_size(str("/proc/self/environ")), 0);
}

TEST_F(str_file, failing_reads) {
    EXPECT_TRUE(str::read_file(path("none"), true).empty());
    EXPECT_EQ(str::file_size(path("none")), 0);
    EXPECT_EQ(take_log(), "");
    EXPECT_TRUE(str::read_file(path("none\\x"), false).empty());
    EXPECT_EQ(take_log(), logged("Could not fstat ", "none/x"));
    EXPECT_TRUE(str::read_file(path(""), false).empty());  // a directory opens but can't be read
    EXPECT_TRUE(str::read_file(str(), true).empty());
}

TEST_F(str_file, failing_writes) {
    ASSERT_TRUE(str::write_file(str("x"), path("file")));
    EXPECT_FALSE(str::write_file(str("x"), path("file/below")));
    EXPECT_EQ(take_log(), logged("Could not open ", "file/below", " for writing"));

    // Through a link, since the name is removed after a failed write.
    ASSERT_TRUE(fs::exists("/dev/full"));
    fs::create_symlink("/dev/full", root + "/full");
    EXPECT_FALSE(str::write_file(str("x"), path("full")));
    EXPECT_EQ(take_log(), logged("Could not write ", "full"));
    EXPECT_FALSE(fs::is_symlink(root + "/full"));
    EXPECT_TRUE(fs::exists("/dev/full"));
}

// The process's file size limit cuts a write short; what write() then returns chooses the message.
TEST_F(str_file, short_writes) {
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    for (rlim_t limit : {27u, 28u, 262144u + 28u}) {
        rlimit const small{limit, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        EXPECT_FALSE(str::write_file(str('x', 300000), path("cut")));
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_EQ(take_log(),
                  logged(limit == 27 ? "Could not write " : "File system full while writing ", "cut"));
        EXPECT_FALSE(fs::exists(root + "/cut"));
    }
    EXPECT_TRUE(str::write_file(str('x', 28), path("exact")));
}

TEST_F(str_file, directories_are_listed) {
    ASSERT_TRUE(str::write_file(str("x"), path("sub/inner")));
    ASSERT_TRUE(str::write_file(str("x"), path("..file")));
    fs::create_directory_symlink(root + "/sub", root + "/link");
    for (char const* below : {"", "sub\\.."}) {
        str names = str::list_directory(path(below), true);
        std::vector<std::string> lines;
        while (!names.empty())
            lines.push_back(plain(names.take_line()));
        std::sort(lines.begin(), lines.end());
        EXPECT_EQ(lines, (std::vector<std::string>{"..file file", "link file", "sub dir"}));
    }
    EXPECT_EQ(plain(str::list_directory(path("sub/"), false)), "inner\n");
    EXPECT_TRUE(str::list_directory(path("none"), true).empty());
    EXPECT_FALSE(str::list_directory(str("/"), false).empty());
}

TEST_F(str_file, remove_and_rename) {
    ASSERT_TRUE(str::write_file(str("x"), path("a")));
    EXPECT_TRUE(str::rename_file(path(".\\a"), path(".\\b")));
    EXPECT_FALSE(str::rename_file(path("a"), path("c")));
    EXPECT_EQ(take_log(), logged("Cannot rename file ", "a to ") + root + "/c");
    EXPECT_TRUE(str::remove_file(path(".\\b"), false));
    EXPECT_FALSE(str::remove_file(path("b"), true));
    EXPECT_EQ(take_log(), "");
    EXPECT_FALSE(str::remove_file(path("b"), false));
    EXPECT_EQ(take_log(), logged("Cannot remove file ", "b"));
}

}  // namespace
