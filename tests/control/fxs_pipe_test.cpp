#include "control/fxs_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"
#include "tests/support/seed.h"
#include "tests/support/stepped_lines.h"

namespace {

using lines = std::vector<std::string>;

int waiting(int fd) {
    int n = 0;
    EXPECT_EQ(ioctl(fd, FIONREAD, &n), 0);
    return n;
}

class fxs_pipe : public testing::Test {
protected:
    fxs_pipe() : directory(make_temporary_directory()), base((directory / "pipe").string()) {
        EXPECT_EQ(mkfifo((base + "0").c_str(), 0600), 0);
        EXPECT_EQ(mkfifo((base + "1").c_str(), 0600), 0);
        open_fxs_pipe(to_str(base));
        driver = open((base + "0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_GE(driver, 0) << "the process reads";
        flush();
    }
    ~fxs_pipe() override {
        close(driver);
        close_both();
        std::filesystem::remove_all(directory);
    }
    static void close_both() {
        for (int* const fd : {&fxs_in_fd, &fxs_out_fd}) {
            close(*fd);
            *fd = -1;
        }
    }
    /// The driver writes, the process reads until the pipe is empty; the lines that call control gets.
    lines sent_for(std::string_view bytes) {
        for (std::size_t n; !bytes.empty(); bytes.remove_prefix(n)) {
            n = std::min<std::size_t>(bytes.size(), 4096);
            EXPECT_EQ(write(driver, bytes.data(), n), static_cast<ssize_t>(n));
            while (waiting(fxs_in_fd) > 0)
                process_fxs_input();
        }
        return sent();
    }
    lines sent() {
        lines all;
        for (std::string const& datagram : peer.datagrams()) {
            all.push_back(control_peer::elements(datagram).at(0).second);
            EXPECT_EQ(datagram, element_of(25, all.back()));
        }
        return all;
    }
    /// Leaves nothing held: what has been held becomes the last line.
    lines flush() { return sent_for("\n"); }

    control_peer peer;
    std::filesystem::path directory;
    std::string base;
    int driver;
};

/// The rule in other words: the first line counts as it is; in what follows it every run of line ends with a line feed
/// in it separates, except at the very end, where it vanishes.
class model {
public:
    lines read(std::string const& bytes) {
        held += bytes;
        std::size_t const first = held.find('\n');
        if (first == std::string::npos)
            return {};
        lines all{stripped(held.substr(0, first))};
        std::string const rest = stripped(held.substr(first + 1));
        held.clear();
        for (std::size_t at = 0, run, next; at < rest.size(); at = next) {
            run = std::min(rest.find_first_of(ends, at), rest.size());
            next = std::min(rest.find_first_not_of(ends, run), rest.size());
            std::string const separator = rest.substr(run, next - run);
            held += rest.substr(at, run - at);
            if (separator.find('\n') != std::string::npos)
                all.push_back(std::exchange(held, ""));
            else
                held += separator;
        }
        return all;
    }

private:
    static constexpr char ends[] = "\r\n";
    static std::string stripped(std::string const& text) {
        std::size_t const from = text.find_first_not_of(ends);
        return from == std::string::npos ? "" : text.substr(from, text.find_last_not_of(ends) - from + 1);
    }
    std::string held;
};

TEST_F(fxs_pipe, any_chunks_against_a_model) {
    seed_range{1, 20}.for_each([&](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        dice random(seed);
        flush();
        model expected;
        for (int i = 0; i < 60; i++) {
            std::string chunk;
            for (int n = random.between(1, random.chance(20) ? 300 : 12); n > 0; n--)
                chunk += "\n\n\r\rAB C"[random.below(8)];
            lines wanted;
            for (std::size_t at = 0; at < chunk.size(); at += 128)
                for (std::string const& line : expected.read(chunk.substr(at, 128)))
                    wanted.push_back(line);
            ASSERT_EQ(sent_for(chunk), wanted) << "chunk " << i << " " << to_hex(chunk);
        }
    });
}

TEST_F(fxs_pipe, a_line_that_fits_no_datagram_is_lost_and_takes_no_more_memory) {
    std::string const longest(65503, 'x'), returns(300, '\r');
    std::pair<std::string, lines> const table[] = {
        {longest + "\r\n", {longest}},
        {longest + "y\n", {}},
        {returns + longest + returns + "\n", {longest}},
        {longest + returns + "y\n", {}},
        {longest.substr(100) + returns + "y" + returns + "\n", {}},
        {longest + longest + "\n", {}},
        {std::string(4 << 20, 'x') + "\n", {}},
        {longest + std::string(4 << 20, '\r') + "\n", {longest}},
    };
    std::uint64_t const before = str::allocated_size;
    for (auto const& [written, reported] : table) {
        EXPECT_TRUE(sent_for(written) == reported) << written.size();
        EXPECT_EQ(sent_for("next\n"), lines{"next"});
    }
    EXPECT_LT(str::allocated_size - before, 1u << 20);
}

TEST_F(fxs_pipe, a_driver_that_goes_and_comes_back_changes_nothing) {
    EXPECT_EQ(sent_for("before\n half"), lines{"before"});
    close(driver);
    pollfd input{fxs_in_fd, POLLIN, 0};
    EXPECT_EQ(poll(&input, 1, 0), 0) << "no end of file: this process holds the other side itself";
    driver = open((base + "0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(sent_for(" line\n"), lines{" half line"});
    EXPECT_EQ(waiting(fxs_out_fd), 0) << "nothing is written to the driver";
}

TEST_F(fxs_pipe, is_closed_for_good_at_the_end_of_file) {
    close_both();
    std::ofstream(directory / "file0") << "last words\r\n";
    open_fxs_pipe(to_str((directory / "file").string()));
    EXPECT_EQ(fxs_out_fd, -1) << "there is no second file";
    int const was = fxs_in_fd;
    ASSERT_GE(was, 0);
    control_peer logged(1);
    for (int i = 0; i < 3; i++)
        process_fxs_input();
    EXPECT_EQ(logged.transcript(),
              (lines{to_hex(element_of(25, "last words")), "1 FXS message pipe closed"}));
    EXPECT_EQ(fxs_in_fd, -1);
    EXPECT_EQ(fcntl(was, F_GETFD), -1) << "the descriptor is closed too";
}

TEST_F(fxs_pipe, opening_and_errors) {
    for (auto const& [fd, name] : {std::pair(fxs_in_fd, base + "0"), std::pair(fxs_out_fd, base + "1")}) {
        EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)), name);
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    }
    close_both();
    open_fxs_pipe(to_str((directory / "nothing").string()));
    EXPECT_EQ(fxs_in_fd, -1);
    EXPECT_EQ(fxs_out_fd, -1);
    fxs_in_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    process_fxs_input();
    EXPECT_EQ(sent(), lines{});
    EXPECT_GE(fxs_in_fd, 0) << "a failed read closes nothing";
}

}  // namespace
