#include "control/driver.h"

#include <fcntl.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lib/log.h"
#include "tests/control/driver_spy.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

using lines = std::vector<std::string>;

constexpr unsigned long led_on = 0x20003006;
constexpr unsigned long led_off = 0x20003007;

class driver : public media_fixture {
protected:
    driver() : media_fixture(9) { driver_spy::answer = 0; }

    void hide_devices() {
        for (int i = 0; i < devmgr_count; i++)
            std::filesystem::remove(telephone.path(i));
    }
    /// The one request since the last call, which must be a plain one on a device opened for both ways.
    driver_spy::request only_request() {
        auto const all = driver_spy::take();
        EXPECT_EQ(all.size(), 1u);
        if (all.empty())
            return {};
        EXPECT_EQ(all[0].argument, 0u);
        EXPECT_EQ(all[0].access_mode, O_RDWR);
        return all[0];
    }
    static bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

    stepped_lines telephone;
};

TEST_F(driver, requests_go_to_the_first_open_line_device) {
    struct {
        std::vector<int> open;
        int used;
        bool only_now;
    } const table[] = {
        {{}, 0, true},      {{0}, 0, false},       {{3}, 3, false},
        {{3, 1}, 1, false}, {{2, 1, 0}, 0, false}, {{0, 1, 2, 3}, 0, false},
    };
    for (auto const& row : table) {
        std::string const file = std::filesystem::canonical(telephone.path(row.used));
        for (int const i : row.open)
            devmgrs[i].open();
        driver_spy::take();
        for (auto const& request : {+[] { reset_base(2); }, +[] { send_led_call_cmd_to_driver(1); }}) {
            request();
            driver_spy::request const seen = only_request();
            EXPECT_EQ(seen.file, file);
            EXPECT_EQ(is_open(seen.fd), !row.only_now);
            EXPECT_EQ(seen.fd == devmgrs[row.used].get_fd(), !row.only_now);
        }
        for (int const i : row.open) {
            EXPECT_TRUE(is_open(devmgrs[i].get_fd()));
            devmgrs[i].close();
        }
    }
}

TEST_F(driver, commands_and_what_is_reported) {
    struct {
        int command;
        unsigned long number;
        int answer;
        char const* report;
    } const table[] = {
        {0, 0x20003000, 7, ""},
        {1, 0x20003001, 7, ""},
        {2, 0x20003002, 7, ""},
        {3, 0x20003003, 0, "000B 000C 001B 0002 0003 000F 0002 0000"},
        {3, 0x20003003, 42, "000B 000C 001B 0002 0003 000F 0002 002A"},
        {3, 0x20003003, -1, "000B 000C 001B 0002 0003 000F 0002 FFFF"},
        {3, 0x20003003, 0x12345, "000B 000C 001B 0002 0003 000F 0002 2345"},
        {4, 0x20003004, 7, ""},
        {6, led_on, 7, ""},
        {0xFFF, 0x20003FFF, 7, ""},
        {0x1003, 0x20003003, 7, ""},  // combined bit by bit, not added
        {0xFFFF, 0x2000FFFF, 7, ""},
    };
    for (auto const& row : table) {
        driver_spy::answer = row.answer;
        reset_base(row.command);
        EXPECT_EQ(only_request().number, row.number) << row.command;
        lines expected{"5 reset base command " + std::to_string(row.command)};
        if (*row.report != 0)
            expected.push_back(to_hex(from_hex(row.report)));
        EXPECT_EQ(peer.transcript(), expected) << row.command << " answered with " << row.answer;
    }
}

TEST_F(driver, led_request_says_on_or_off_and_nothing_comes_back) {
    struct {
        int on;
        unsigned long number;
    } const table[] = {{0, led_off}, {1, led_on}, {2, led_on}, {-1, led_on}, {256, led_on}};
    for (int const answer : {0, -1, 3})
        for (auto const& [on, number] : table) {
            driver_spy::answer = answer;
            send_led_call_cmd_to_driver(on);
            EXPECT_EQ(only_request().number, number) << on;
        }
    EXPECT_EQ(peer.transcript(), lines{});
}

TEST_F(driver, without_a_device_nothing_is_asked_and_nothing_reported) {
    hide_devices();
    std::string const reset = "5 reset base command 3", failed = "7 Failure to send command to driver",
                      led_failed = "7 Failure to send command led call to driver";
    struct {
        int threshold;
        lines logged;
    } const table[] = {{9, {reset, failed, led_failed}},
                       {7, {reset, failed, led_failed}},
                       {6, {reset}},
                       {5, {reset}},
                       {4, {}}};
    for (auto const& [threshold, logged] : table) {
        log_set_level(threshold);
        reset_base(3);
        send_led_call_cmd_to_driver(1);
        EXPECT_EQ(peer.transcript(), logged) << threshold;
    }
    EXPECT_EQ(driver_spy::take(), std::vector<driver_spy::request>{});
}

}  // namespace
