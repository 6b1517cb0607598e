#include "control/driver.h"

#include <sys/syscall.h>

#include <cstdarg>

#include "control/call_led.h"
#include "control/commands.h"
#include "lib/timeout.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

/// The requests to the telephone-line driver, which is this test program: number and device, "20003003 /dev/pts/1".
std::vector<std::string> requests;
int answer = 0;

}  // namespace

/// What the linker puts in place of ioctl() (--wrap). The request is an int in some C libraries.
extern "C" int __wrap_ioctl(int fd, unsigned number, ...) {
    va_list arguments;
    va_start(arguments, number);
    unsigned long const argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    if ((number & ~0xFFFFu) != 0x20000000)
        return static_cast<int>(syscall(SYS_ioctl, fd, number, argument));
    EXPECT_EQ(argument, 0u);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    requests.push_back(to_hex(be32(number)) + " " +
                       std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string());
    return answer;
}

/// The name that ioctl() has in 32-bit programs with 64-bit time.
extern "C" int __wrap___ioctl_time64(int, unsigned, ...) __attribute__((alias("__wrap_ioctl")));

namespace {

struct driver : media_fixture {
    driver() : media_fixture(9), clock(0xFFFFFF80) {  // its 32-bit reading wraps soon
        init_timestamps();
        requests.clear();
    }
    ~driver() override { set_led1(0); }

    void command(int tag, std::string const& fields) { dispatch_command(tag, to_str(fields), peer.address()); }
    lines taken() { return std::exchange(requests, {}); }
    std::string request(char const* number, int line) {
        return number + (" " + std::filesystem::canonical(telephone.path(line)).string());
    }
    /// What the LED is told from now on, with the waits between in ms as the main loop has them: "on 500 off 500 ".
    std::string steps(int n) {
        std::string all;
        for (; n > 0; n--) {
            int const ms = std::max(timeout_queue::global_queue.delay(true), 0);
            for (std::string const& r : taken())
                all += r == request("20003006", 0) ? "on " : r == request("20003007", 0) ? "off " : r;
            all += std::to_string(ms) + " ";
            clock.advance_ms(static_cast<unsigned>(ms));
            timeout_queue::global_queue.next();
        }
        return all;
    }

    manual_clock clock;
    stepped_lines telephone;
};

TEST_F(driver, requests_go_to_the_first_open_line_device) {
    int const free_fd = dup(STDIN_FILENO);
    close(free_fd);
    std::pair<std::vector<int>, int> const table[] = {{{}, 0}, {{0}, 0}, {{3}, 3}, {{3, 1}, 1}};
    for (auto const& [open, used] : table) {
        for (int const i : open)
            devmgrs[i].open();
        reset_base(2);
        send_led_call_cmd_to_driver(256);
        EXPECT_EQ(taken(), (lines{request("20003002", used), request("20003006", used)}));
        for (int const i : open)
            devmgrs[i].close();
        EXPECT_EQ(fcntl(free_fd, F_GETFD), -1) << "opened for the request only";
    }
}

TEST_F(driver, requests_and_what_is_reported) {
    struct {
        int command;
        char const* request;
        int answer;
        char const* report;
    } const table[] = {
        {3, "20003003", 42, "000B 000C 001B 0002 0003 000F 0002 002A"},
        {3, "20003003", -1, "000B 000C 001B 0002 0003 000F 0002 FFFF"},
        {3, "20003003", 0x12345, "000B 000C 001B 0002 0003 000F 0002 2345"},
        {0x1003, "20003003", 7, ""},  // combined bit by bit, not added
        {0xFFFF, "2000FFFF", 7, ""},
    };
    namespace base = protocol::cmd_reset_base;
    for (auto const& row : table) {
        answer = row.answer;
        command(base::tag, short_element(base::command, static_cast<unsigned>(row.command)));
        EXPECT_EQ(taken(), lines{request(row.request, 0)});
        lines expected{"5 reset base command " + std::to_string(row.command)};
        if (*row.report != 0)
            expected.push_back(unspaced(row.report));
        EXPECT_EQ(peer.transcript(), expected) << row.command << " answered with " << row.answer;
    }
    std::filesystem::remove(telephone.path(0));
    reset_base(3);
    send_led_call_cmd_to_driver(1);
    EXPECT_EQ(taken(), lines{});
    EXPECT_EQ(peer.transcript(), (lines{"5 reset base command 3", "7 Failure to send command to driver",
                                        "7 Failure to send command led call to driver"}));
}

TEST_F(driver, an_led_pattern_starts_afresh_from_every_step_and_repeats_for_ever) {
    static constexpr struct {
        int number, entries;
        char const* cycle;
    } patterns[] = {
        {0, 1, "off 0 "},
        {1, 2, "on 500 off 500 "},
        {2, 10, "on 50 off 50 on 50 off 50 on 50 off 50 on 50 off 50 on 50 off 2000 "},
        {3, 6, "on 100 off 50 on 100 off 50 on 100 off 2500 "},
        {4, 1, "off 2000 "},
        {65535, 1, "off 2000 "},
    };
    namespace led = protocol::cmd_led;
    for (auto const& before : patterns)
        for (auto const& after : patterns)
            for (int at = 0; at < 11; at++) {
                set_led1(before.number);
                steps(at);
                clock.advance_ms(20);
                taken();
                std::string const first = short_element(led::pattern, static_cast<unsigned>(after.number));
                command(led::tag, after.number == 0 ? "" : first + short_element(led::pattern, 7));
                for (int cycle = 0; cycle < (after.number == 0 ? 1 : 3); cycle++)
                    ASSERT_EQ(steps(after.entries), after.cycle) << before.number << " at step " << at;
                EXPECT_EQ(timeout_queue::global_queue.size(), after.number != 0) << "the old timer is gone";
            }
}

}  // namespace
