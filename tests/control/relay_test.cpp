// The driver's message pipe and the signalling device: bytes from a descriptor become reports, commands become bytes.
// How lines are cut is in fuzz/fuzz_control.cpp.

#include <sys/stat.h>

#include "control/fxs_pipe.h"
#include "control/sigchan.h"
#include "tests/support/control_peer.h"
#include "tests/support/stepped_lines.h"

namespace {

using lines = std::vector<std::string>;

/// A socket pair stands for either device; its other end is the test's.
struct relay : testing::Test {
    relay() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
        device = ends[0];
        far_end = ends[1];
    }
    ~relay() override {
        for (int* const fd : {&far_end, &fxs_in_fd, &fxs_out_fd, &sigchan_fd})
            close(std::exchange(*fd, -1));
    }
    void write_at_far_end(std::string_view bytes) {
        EXPECT_EQ(write(far_end, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    /// The driver writes, the process reads all of it; what call control gets.
    lines driver_says(std::string_view bytes) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 4096))) {
            write_at_far_end(bytes.substr(0, 4096));
            while (shows(fxs_in_fd, POLLIN, 0))
                process_fxs_input();
        }
        return peer.transcript();
    }
    static lines report(std::string const& text) {
        return {to_hex(element_of(protocol::report_driver_line::tag, text))};
    }

    control_peer peer{9};
    int device, far_end;
};

TEST_F(relay, a_driver_line_that_fits_no_datagram_is_lost_and_takes_no_more_memory) {
    fxs_in_fd = device;
    std::string const longest(65503, 'x'), returns(300, '\r');
    std::pair<std::string, bool> const table[] = {{longest + "\r\n", true},
                                                  {longest + "y\n", false},
                                                  {returns + longest + returns + "\n", true},
                                                  {longest + returns + "y\n", false},
                                                  {longest.substr(100) + returns + "y" + returns + "\n", false},
                                                  {std::string(4 << 20, 'x') + "\n", false},
                                                  {longest + std::string(4 << 20, '\r') + "\n", true}};
    std::uint64_t const before = str::allocated_size;
    for (auto const& [written, reported] : table) {
        EXPECT_TRUE(driver_says(written) == (reported ? report(longest) : lines{})) << written.size();
        EXPECT_EQ(driver_says("next\n"), report("next"));
    }
    EXPECT_LT(str::allocated_size - before, 1u << 20);
}

TEST_F(relay, the_driver_pipe_is_closed_for_good_at_its_end_but_not_by_an_error) {
    fxs_in_fd = device;
    process_fxs_input();
    EXPECT_EQ(fxs_in_fd, device) << "nothing there";
    write_at_far_end("last words\n");
    close(std::exchange(far_end, -1));
    for (int i = 0; i < 3; i++)
        process_fxs_input();
    lines expected = report("last words");
    expected.push_back("1 FXS message pipe closed");
    EXPECT_EQ(peer.transcript(), expected);
    EXPECT_EQ(fxs_in_fd, -1);
    EXPECT_EQ(fcntl(device, F_GETFD), -1) << "the descriptor is closed too";
}

TEST_F(relay, named_pipes_have_no_end) {
    temporary_directory const directory;
    std::string const base = directory.path("pipe");
    open_fxs_pipe(to_str(base));
    EXPECT_EQ(std::pair(fxs_in_fd, fxs_out_fd), std::pair(-1, -1)) << "there are none yet";
    for (char const* const number : {"0", "1"})
        EXPECT_EQ(mkfifo((base + number).c_str(), 0600), 0);
    open_fxs_pipe(to_str(base));
    for (int const fd : {fxs_in_fd, fxs_out_fd})
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fxs_out_fd)), base + "1");
    close(std::exchange(far_end, open((base + "0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)));
    EXPECT_EQ(driver_says("line\n"), report("line"));
    close(std::exchange(far_end, -1));
    EXPECT_FALSE(shows(fxs_in_fd, POLLIN, 0)) << "this process holds the other side itself";
    close(device);
}

TEST_F(relay, the_signalling_device_is_raw_and_fast_and_never_waits) {
    close(std::exchange(far_end, posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)));
    EXPECT_EQ(grantpt(far_end) + unlockpt(far_end), 0);
    std::string const path = ptsname(far_end);
    termios settings{};
    tcgetattr(far_end, &settings);
    settings.c_iflag |= ISTRIP | INLCR;
    settings.c_cc[VMIN] = settings.c_cc[VTIME] = 7;
    EXPECT_EQ(tcsetattr(far_end, TCSANOW, &settings), 0);
    auto const child = [&] {
        setsid();
        sigchan_open(to_str(path));
        _exit(sigchan_fd >= 0 && open("/dev/tty", O_RDWR) < 0 ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "") << "it must not become the controlling terminal";
    peer.transcript();

    sigchan_open(to_str(path));
    EXPECT_EQ(peer.transcript(), lines{"5 Opened " + path});
    EXPECT_EQ(fcntl(sigchan_fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
    ASSERT_EQ(tcgetattr(sigchan_fd, &settings), 0);
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(settings.c_iflag & (ICRNL | INLCR | IGNCR | IXON | ISTRIP | PARMRK | BRKINT), 0u);
    EXPECT_EQ(settings.c_oflag & OPOST, 0u);
    EXPECT_EQ(settings.c_cflag & (CSIZE | PARENB), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(settings.c_cc[VMIN] + settings.c_cc[VTIME], 0);
    EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
    sigchan_process();
    EXPECT_EQ(peer.transcript(), lines{}) << "nothing to read, nothing sent, no waiting";
    close(device);
}

TEST_F(relay, one_read_of_the_signalling_device_is_one_message_and_what_it_does_not_take_is_lost) {
    sigchan_fd = device;
    namespace signal = protocol::report_signal;
    write_at_far_end(std::string(1500, 'x'));
    for (std::size_t const bytes : {1024u, 476u}) {
        sigchan_process();
        std::string const data = element_of(signal::data, std::string(bytes, 'x'));
        EXPECT_EQ(peer.transcript(), lines{to_hex(element_of(signal::tag, data))});
    }
    sigchan_send(str('x', 1 << 22));
    EXPECT_EQ(peer.transcript(), lines{"3 Could not write 4194304 bytes"});
    std::string taken(1 << 22, 0);
    EXPECT_LT(read(far_end, taken.data(), taken.size()), 1 << 22);
    while (shows(far_end, POLLIN, 0))
        EXPECT_GT(read(far_end, taken.data(), taken.size()), 0);
    sigchan_send(str("after"));
    EXPECT_EQ(read(far_end, taken.data(), taken.size()), 5) << "neither retried nor queued";
}

TEST_F(relay, without_a_signalling_device_bytes_are_lost_and_logged) {
    sigchan_open(str::null);
    sigchan_open(str("/nowhere/tty%d"));
    EXPECT_EQ(sigchan_fd, -1);
    sigchan_process();
    sigchan_send(str("abc"));
    EXPECT_EQ(peer.transcript(), (lines{"0 Could not open /nowhere/tty%d", "3 Could not write 3 bytes"}));
    close(device);
}

}  // namespace
