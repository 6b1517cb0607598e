#include "control/sigchan.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "control/commands.h"
#include "lib/log.h"
#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

namespace {

using lines = std::vector<std::string>;

constexpr int patience_ms = 10000;

std::string all_bytes() {
    std::string bytes;
    for (int i = 0; i < 256; i++)
        bytes += static_cast<char>(i);
    return bytes;
}

/// The other end of the serial line is the test's: the master side of a pseudo-terminal that starts as a terminal
/// for people, 9600 baud.
class signalling_device : public testing::Test {
protected:
    signalling_device() : line(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(grantpt(line), 0);
        EXPECT_EQ(unlockpt(line), 0);
        path = ptsname(line);
        termios settings{};
        tcgetattr(line, &settings);
        settings.c_lflag |= ICANON | ECHO | ISIG | IEXTEN;
        settings.c_iflag |= ICRNL | IXON | ISTRIP;
        settings.c_oflag |= OPOST | ONLCR;
        settings.c_cc[VMIN] = 7;
        settings.c_cc[VTIME] = 7;
        cfsetspeed(&settings, B9600);
        EXPECT_EQ(tcsetattr(line, TCSANOW, &settings), 0);
    }
    ~signalling_device() override {
        close(sigchan_fd);
        sigchan_fd = -1;
        close(line);
    }
    void open_device() {
        sigchan_open(to_str(path));
        EXPECT_EQ(peer.transcript(), lines{"5 Opened " + path});
        ASSERT_GE(sigchan_fd, 0);
    }
    /// Waits until the device has them all to read.
    void arrives(std::string_view bytes) {
        ASSERT_EQ(write(line, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        int waiting = 0;
        for (int ms = 0; waiting < static_cast<int>(bytes.size()); ms++) {
            ASSERT_LT(ms, patience_ms);
            poll(nullptr, 0, 1);
            ASSERT_EQ(ioctl(sigchan_fd, FIONREAD, &waiting), 0);
        }
    }
    std::string leaves(std::size_t n) {
        std::string bytes;
        pollfd readable{line, POLLIN, 0};
        while (bytes.size() < n && poll(&readable, 1, patience_ms) == 1) {
            char buffer[4096];
            ssize_t const got = read(line, buffer, sizeof buffer);
            if (got <= 0)
                break;
            bytes.append(buffer, static_cast<std::size_t>(got));
        }
        return bytes;
    }
    static std::string message(std::string_view bytes) { return to_hex(element_of(8, element_of(2, bytes))); }
    void signal_command(lines const& fields) {
        std::string command;
        for (std::string const& field : fields)
            command += element_of(15, field);
        dispatch_command(8, to_str(command), peer.address());
    }

    control_peer peer{9};
    int line;
    std::string path;
};

TEST_F(signalling_device, is_raw_and_fast_and_never_waits) {
    open_device();
    EXPECT_EQ(fcntl(sigchan_fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
    termios now{};
    ASSERT_EQ(tcgetattr(sigchan_fd, &now), 0);
    EXPECT_EQ(now.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(now.c_iflag & (ICRNL | INLCR | IGNCR | IXON | ISTRIP | PARMRK | BRKINT), 0u);
    EXPECT_EQ(now.c_oflag & OPOST, 0u);
    EXPECT_EQ(now.c_cflag & (CSIZE | PARENB), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(now.c_cc[VMIN], 0);
    EXPECT_EQ(now.c_cc[VTIME], 0);
    EXPECT_EQ(cfgetispeed(&now), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&now), static_cast<speed_t>(B115200));
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{}) << "nothing to read, nothing sent, no waiting";
}

TEST_F(signalling_device, does_not_become_the_controlling_terminal) {
    pid_t const child = fork();
    if (child == 0) {
        setsid();
        sigchan_open(to_str(path));
        _exit(sigchan_fd >= 0 && open("/dev/tty", O_RDWR) < 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(signalling_device, passes_every_byte_both_ways) {
    open_device();
    arrives(all_bytes());
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{message(all_bytes())});
    signal_command({all_bytes()});
    EXPECT_EQ(to_hex(leaves(256)), to_hex(all_bytes()));
}

TEST_F(signalling_device, one_read_is_one_message_of_at_most_1024_bytes) {
    open_device();
    std::string waiting;
    while (waiting.size() < 1500)
        waiting += all_bytes().substr(0, 250);
    arrives(waiting);
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{message(waiting.substr(0, 1024))});
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{message(waiting.substr(1024))});
    arrives("a");
    arrives("ab");
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{message("aab")}) << "frames are not kept apart";
}

TEST_F(signalling_device, each_field_is_one_write_in_order) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    sigchan_fd = ends[0];
    signal_command({"first", "", "2", std::string("\0\r\n", 3)});
    char buffer[100];
    for (std::string const& expected : {std::string("first"), std::string("2"), std::string("\0\r\n", 3)}) {
        ssize_t const n = read(ends[1], buffer, sizeof buffer);
        ASSERT_GT(n, 0);
        EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(n)), expected);
    }
    EXPECT_EQ(read(ends[1], buffer, sizeof buffer), -1) << "an empty one is not written";
    EXPECT_EQ(peer.transcript(), lines{});
    close(ends[1]);
}

TEST_F(signalling_device, without_a_device_bytes_are_lost_and_logged) {
    sigchan_open(str::null);
    EXPECT_EQ(peer.transcript(), lines{});
    sigchan_open(str("/nowhere/tty%d"));
    EXPECT_EQ(peer.transcript(), lines{"0 Could not open /nowhere/tty%d"});
    EXPECT_EQ(sigchan_fd, -1);
    sigchan_process();
    signal_command({"abc", "", std::string(1000, 'x')});
    EXPECT_EQ(peer.transcript(), (lines{"3 Could not write 3 bytes", "3 Could not write 1000 bytes"}));
}

TEST_F(signalling_device, that_vanishes_keeps_its_descriptor) {
    open_device();
    close(line);
    line = -1;
    int const was = sigchan_fd;
    sigchan_process();
    sigchan_process();
    signal_command({"12345"});
    EXPECT_EQ(peer.transcript(), lines{"3 Could not write 5 bytes"});
    EXPECT_EQ(sigchan_fd, was);
    EXPECT_NE(fcntl(was, F_GETFD), -1) << "still open";
}

TEST_F(signalling_device, what_it_does_not_take_is_neither_retried_nor_queued) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    int const room = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    sigchan_fd = ends[1];
    std::string const too_much(static_cast<std::size_t>(room) + 1, 'x');
    std::string const lost = "3 Could not write " + std::to_string(room + 1) + " bytes";
    sigchan_send(to_str(too_much));
    sigchan_send(str("more"));
    EXPECT_EQ(peer.transcript(), (lines{lost, "3 Could not write 4 bytes"}));
    std::string buffer(2 * too_much.size(), 0);
    EXPECT_EQ(read(ends[0], buffer.data(), buffer.size()), room);
    sigchan_send(str("after"));
    EXPECT_EQ(read(ends[0], buffer.data(), buffer.size()), 5);
    close(ends[0]);
}

TEST_F(signalling_device, need_not_be_a_terminal) {
    path = "/dev/null";  // at its end whenever it is read
    open_device();
    sigchan_process();
    EXPECT_GE(sigchan_fd, 0);
    EXPECT_EQ(peer.transcript(), lines{});
}

TEST_F(signalling_device, log_lines_have_levels) {
    struct {
        int threshold;
        lines logged;
    } const table[] = {
        {-1, {}},
        {0, {"0 Could not open /nowhere"}},
        {2, {"0 Could not open /nowhere"}},
        {3, {"0 Could not open /nowhere", "3 Could not write 1 bytes"}},
        {4, {"0 Could not open /nowhere", "3 Could not write 1 bytes"}},
        {5, {"0 Could not open /nowhere", "3 Could not write 1 bytes", "5 Opened " + path}},
    };
    for (auto const& [threshold, logged] : table) {
        log_set_level(threshold);
        sigchan_open(str("/nowhere"));
        sigchan_send(str("x"));
        sigchan_open(to_str(path));
        EXPECT_EQ(peer.transcript(), logged) << threshold;
        close(sigchan_fd);
        sigchan_fd = -1;
    }
}

}  // namespace
