// The driver's links beside the lines, through the program: call LED, message pipe, signalling device.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tests/tools/fxsline/fixtures.h"

namespace {

using namespace std::string_literals;

class Links : public testing::Test {
protected:
    static std::string event(child& program) {
        auto const event = nlohmann::json::parse(program.line());
        return std::to_string(event["time_ms"].get<int>()) + " " + event["event"].get<std::string>() + " " +
               event.value("text", "");
    }
    /// 0 or -errno
    long say(std::string const& name, std::string const& bytes) {
        return std::min(0L, write_text(mount.path(name), bytes));
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
};

TEST_F(Links, DriverSpeaksOverThePipeByScriptByHookAndByFile) {
    std::string const base = directory.path("fxs");
    ASSERT_EQ(mkfifo((base + "0").c_str(), 0600), 0);  // left by a killed run
    std::ofstream(directory.path("script")) << "35 second\n5 first\\c\n";
    child program = start_fxsline({mount.path(""), "--stepped", "--json", "--pipe", base, "--pipe-script",
                                   directory.path("script"), "--hook", "2=20,50"});
    EXPECT_EQ(event(program), "0 serving ");
    EXPECT_EQ(say("clock", "1"), 0);  // waits for the process in the pipe
    int const pipe = opened(base + "0");
    EXPECT_GE(opened(base + "1"), 0);
    EXPECT_EQ(read_from(pipe), "first");
    EXPECT_EQ(say("clock", "2"), 0);
    EXPECT_EQ(read_from(pipe), "off-hook 2\r\n");
    EXPECT_EQ(say("clock", "2"), 0);
    EXPECT_EQ(say("driver.say", "A\r\nB\0\xff"s), 0);
    EXPECT_EQ(read_from(pipe), "second\r\non-hook 2\r\nA\r\nB\0\xff"s);
    EXPECT_EQ(say("driver.say", std::string(4097, 'x')), -EMSGSIZE);
    while (write(pipe, "x", 1) == 1) {
    }
    EXPECT_EQ(say("driver.say", "x"), -EAGAIN) << "a full pipe refuses, and nobody waits";
    for (char const* expected :
         {"10 driver_line first", "20 driver_line off-hook 2\r\n", "40 driver_line second\r\n",
          "50 driver_line on-hook 2\r\n", "50 driver_line A\r\nB", "50 driver_line_refused too long",
          "50 driver_line_refused the process reads nothing, the pipe is full"})
        EXPECT_TRUE(event(program).starts_with(expected)) << expected;
    EXPECT_EQ(program.end(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::exists(base + "0") || std::filesystem::exists(base + "1"));
}

TEST_F(Links, SignallingDeviceRelaysEveryByteBothWays) {
    std::string const link = directory.path("line");
    std::filesystem::create_symlink("/dev/pts/4242", link);  // left by a killed run
    child program = start_fxsline({mount.path(""), "--stepped", "--json", "--signal", link});
    EXPECT_EQ(event(program), "0 serving ");
    EXPECT_EQ(say("signal.say", "0a 0D 03:04 11 13 7f ff00\n"), 0);  // before the process comes
    int const device = opened(link);
    std::string heard;
    for (int tries = 0; heard.size() < 9 && tries < 1000; tries++, usleep(10000))
        heard += read_from(device);
    EXPECT_EQ(heard, "\x0a\x0d\x03\x04\x11\x13\x7f\xff\0"s);
    EXPECT_EQ(event(program), "0 signal_to_process 0a0d030411137fff00");
    EXPECT_EQ(write(device, "\x0a\x0d\x03\x00\xff", 5), 5);
    EXPECT_EQ(event(program), "0 signal_from_process 0a0d0300ff") << "and no echo of what was sent";
    close(device);
    for (char const* refused : {"", "0", "xy", "0 0"}) {
        EXPECT_EQ(say("signal.say", refused + "\n"s), -EINVAL) << refused;
        EXPECT_EQ(event(program), "0 signal_refused not hexadecimal text");
    }
    EXPECT_EQ(write(opened(link), "\x01", 1), 1) << "the process may come again";
    EXPECT_EQ(event(program), "0 signal_from_process 01");
    EXPECT_EQ(program.end(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST_F(Links, CallLedIsShownAtAnyTimeAndAtTheEnd) {
    std::string const text = "0 on\n500 off\n##########..........\n", file = directory.path("led");
    for (std::vector<std::string> const& show : {std::vector{"--json"s}, {"--led-timeline"s, file}}) {
        std::vector<std::string> arguments{mount.path(""), "--stepped"};
        arguments.insert(arguments.end(), show.begin(), show.end());
        child program = start_fxsline(arguments);
        program.line();
        int const device = opened(mount.path("sdt0"));
        for (unsigned const request : {0x20003006U, 0x20003007U}) {
            EXPECT_EQ(ioctl(device, request, 0), 0);
            EXPECT_EQ(say("clock", "50"), 0);
        }
        EXPECT_EQ(contents(mount.path("led")), text);
        close(device);
        EXPECT_EQ(program.end(SIGTERM), 0);
        char const* const shown =
            R"({"time_ms":1000,"event":"led_timeline","commands":[{"time_ms":0,"on":true},)";
        EXPECT_EQ(program.out.find(shown) != std::string::npos, show.size() == 1) << program.out;
    }
    EXPECT_EQ(contents(file), text);
}

}  // namespace
