#include "control/sigchan.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "control/commands.h"
#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

namespace {

using lines = std::vector<std::string>;

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
    auto const child = [&] {
        setsid();
        sigchan_open(to_str(path));
        _exit(sigchan_fd >= 0 && open("/dev/tty", O_RDWR) < 0 ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST_F(signalling_device, one_read_is_one_message_of_at_most_1024_bytes) {
    open_device();
    std::string bytes;
    for (int i = 0; i < 1500; i++)
        bytes += static_cast<char>(i);
    ASSERT_EQ(write(line, bytes.data(), bytes.size()), 1500);
    for (int waiting = 0; waiting < 1500; poll(nullptr, 0, 1))
        ASSERT_EQ(ioctl(sigchan_fd, FIONREAD, &waiting), 0);
    auto const message = [](std::string const& part) { return to_hex(element_of(8, element_of(2, part))); };
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{message(bytes.substr(0, 1024))});
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{message(bytes.substr(1024))});
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

}  // namespace
