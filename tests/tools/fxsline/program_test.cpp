// The program as a user runs it: options, events, recordings, the driver's links (call LED, message pipe, signalling
// device), exit status, what killed runs left behind.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>

#include "tests/tools/child.h"
#include "tests/tools/fxsline/fixtures.h"

namespace {

using namespace std::string_literals;

class fxsline_program : public testing::Test {
protected:
    static child start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), FXSLINE_PROGRAM);
        return child(arguments);
    }
    /// 0 or errno
    int say(std::string const& name, std::string const& bytes) {
        int const fd = open(mount.path(name).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        int const error = write(fd, bytes.data(), bytes.size()) < 0 ? errno : 0;
        close(fd);
        return error;
    }
    /// As the process opens its end; closed at the end of the test program.
    static int opened(std::string const& path) {
        return open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    }
    static std::string read_from(int fd) {
        char bytes[8192];
        ssize_t const count = read(fd, bytes, sizeof bytes);
        return {bytes, count > 0 ? static_cast<size_t>(count) : 0};
    }

    temporary_directory directory, mount;
    std::string const heard = directory.path("heard"), said = directory.path("said");
    std::string const script = directory.path("script"), base = directory.path("fxs");
    std::string const link = directory.path("line");
};

std::string const all_events = R"({"time_ms":0,"event":"signal_to_process","text":"0a0d030411137fff00"}
{"time_ms":10,"event":"driver_line","text":"first"}
{"time_ms":10,"line":1,"event":"device_opened"}
{"time_ms":10,"line":1,"event":"led_on"}
{"time_ms":20,"event":"driver_line","text":"off-hook 2\r\n"}
{"time_ms":20,"line":1,"event":"led_off"}
{"time_ms":30,"line":1,"event":"base_command","number":3,"answer":0}
{"time_ms":40,"event":"driver_line","text":"second\r\n"}
{"time_ms":50,"event":"driver_line","text":"on-hook 2\r\n"}
{"time_ms":50,"event":"driver_line","text":"key 1 5\r\n"}
{"time_ms":60,"line":1,"event":"device_closed"}
{"time_ms":60,"event":"driver_line","text":"A\r\nB\u0000)"
                               "\uFFFD"  // no UTF-8
                               R"("}
{"time_ms":60,"event":"driver_line_refused","text":"too long"}
{"time_ms":60,"event":"driver_line_refused","text":"the process reads nothing, the pipe is full"}
{"time_ms":60,"event":"signal_from_process","text":"0a0d0300ff"}
{"time_ms":60,"event":"signal_refused","text":"not hexadecimal text"}
{"time_ms":60,"event":"signal_refused","text":"not hexadecimal text"}
{"time_ms":60,"event":"signal_from_process","text":"01"}
{"time_ms":80,"line":1,"event":"totals","blocks_read":5,"blocks_written":5,"overruns":0,"underruns":0}
{"time_ms":80,"event":"led_timeline","commands":[{"time_ms":10,"on":true},{"time_ms":20,"on":false}],"drawing":"."}
)";

TEST_F(fxsline_program, records_both_ways_and_speaks_over_its_links) {
    std::ofstream(script) << "35 second\n5 first\\c\n";
    ASSERT_EQ(mkfifo((base + "0").c_str(), 0600), 0);        // left by a killed run
    std::filesystem::create_symlink("/dev/pts/4242", link);  // the same
    child program =
        start({mount.path(""), "--stepped",  "--json",  "--tone",    "1=1000,-6", "--delay",  "1=15",
               "--hear",       "1=" + heard, "--said",  "1=" + said, "--pipe",    base,       "--pipe-script",
               script,         "--hook",     "2=20,50", "--dial",    "1=5@50",    "--signal", link});
    ASSERT_TRUE(program.wait_for_text("serving"));
    EXPECT_EQ(say("signal.say", "0a 0D 03:04 11 13 7f ff00\n"), 0);  // before the process comes
    EXPECT_EQ(say("clock", "1"), 0);                                 // and this waits in the pipe
    int const device = opened(mount.path("sdt1")), pipe = opened(base + "0"), signal = opened(link);
    for (unsigned const request : {0x20003006U, 0x20003007U, 0x20003003U, 0U, 0U}) {
        ioctl(device, request, 0);
        EXPECT_EQ(say("clock", "1\n"), 0);
        std::string const block = read_from(device);
        EXPECT_EQ(block.size(), 160U);
        EXPECT_EQ(write(device, block.data(), block.size()), 160);
    }
    close(device);
    EXPECT_TRUE(contents(mount.path("led")).starts_with("10 on\n20 off\n"));

    EXPECT_EQ(say("driver.say", "A\r\nB\0\xff"s), 0);
    EXPECT_EQ(read_from(pipe), "firstoff-hook 2\r\nsecond\r\non-hook 2\r\nkey 1 5\r\nA\r\nB\0\xff"s);
    EXPECT_EQ(say("driver.say", std::string(4097, 'x')), EMSGSIZE);
    while (write(pipe, "x", 1) == 1) {
    }
    EXPECT_EQ(say("driver.say", "x"), EAGAIN) << "a full pipe refuses, and nobody waits";

    std::string relayed;
    for (int tries = 0; relayed.size() < 9 && tries < 1000; tries++, usleep(10000))
        relayed += read_from(signal);
    EXPECT_EQ(relayed, "\x0a\x0d\x03\x04\x11\x13\x7f\xff\0"s);
    EXPECT_EQ(write(signal, "\x0a\x0d\x03\x00\xff", 5), 5);
    EXPECT_TRUE(program.wait_for_text("0a0d0300ff"));
    close(signal);
    for (char const* refused : {"", "0 0"})
        EXPECT_EQ(say("signal.say", refused + "\n"s), EINVAL) << refused;
    EXPECT_EQ(write(opened(link), "\x01", 1), 1) << "the process may come again";
    EXPECT_TRUE(program.wait_for_text(R"("01")"));

    EXPECT_EQ(say("clock", "2"), 0);
    EXPECT_EQ(program.end(SIGTERM), 0);
    EXPECT_EQ(program.out.substr(program.out.find('\n') + 1), all_events);
    EXPECT_TRUE(std::filesystem::is_empty(mount.path("")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path("")), {}), 3) << "no links";
    std::string const spoken = contents(said).substr(44), played = contents(heard).substr(44);
    std::string const quiet(160, '\0');
    EXPECT_EQ(spoken.size(), 8 * 160U);
    EXPECT_EQ(spoken.substr(0, 3 * 160), quiet + quiet + quiet);
    EXPECT_NE(spoken.substr(3 * 160, 160), quiet);
    EXPECT_TRUE(played.substr(160) == spoken.substr(0, 6 * 160) + quiet);
}

TEST_F(fxsline_program, takes_over_the_mount_of_a_killed_run_but_not_of_a_living_one) {
    child killed = start({mount.path("")});
    ASSERT_TRUE(killed.wait_for_text("serving "));
    EXPECT_EQ(start({mount.path("")}).wait(), 3);
    killed.end(SIGKILL);
    std::error_code error;
    EXPECT_FALSE(std::filesystem::exists(mount.path("sdt0"), error));
    ASSERT_EQ(error.value(), ENOTCONN);
    child next = start({mount.path(""), "--led-timeline", said});
    EXPECT_TRUE(next.wait_for_text("serving "));
    EXPECT_EQ(next.end(SIGINT), 0);
    EXPECT_TRUE(std::filesystem::exists(said));
}

/// Exit status, arguments (HERE: a directory), complaint.
std::string const refusals = R"(
1 x --tone 4=440,-20 > N from 0 to 3
1 x --say 0=/nonexistent > can't open the file /nonexistent
1 x --loop 2 > --loop 2 needs --say 2
1 x --delay 0=-5 > '-5' is not a number
1 x --hook 0=5 > need --pipe
1 x --pipe y --hook 0=5,x > 'x' is not a number
1 x --pipe y --pipe-script HERE > is actually a directory
1 x --pipe y --pipe-script SCRIPT > row 2 is not 'MS TEXT': b
3 /nonexistent > can't mount on /nonexistent
3 SCRIPT > no directory
4 HERE --hear 0=/nonexistent/heard.wav > can't write /nonexistent
5 HERE --pipe /nonexistent/p > can't create the pipe /nonexistent/p0
5 HERE --signal SCRIPT > can't create the link
)";

TEST_F(fxsline_program, says_why_it_cannot_run) {
    std::ofstream(script) << "10 a\nb\n";
    for (std::string const& row : split(refusals.substr(1), '\n')) {
        std::size_t const mark = row.find(" > ");
        std::vector<std::string> arguments = split(row.substr(2, mark - 2), ' ');
        std::ranges::replace(arguments, "SCRIPT", script);
        std::ranges::replace(arguments, "HERE", mount.path(""));
        child program = start(arguments);
        EXPECT_EQ(program.wait(), row[0] - '0') << row;
        EXPECT_NE(program.err.find(row.substr(mark + 3)), std::string::npos) << row << ": " << program.err;
    }
    EXPECT_EQ(contents(script), "10 a\nb\n") << "no link may replace a file";
}

}  // namespace
