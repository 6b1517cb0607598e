#include "control/driver.h"

#include <fcntl.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/control/driver_spy.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

using lines = std::vector<std::string>;

class driver : public media_fixture {
protected:
    driver() : media_fixture(9) { driver_spy::answer = 0; }

    /// The one request since the last call, which must be a plain one on a device opened for both ways.
    driver_spy::request only_request() {
        auto const all = driver_spy::take();
        EXPECT_EQ(all.size(), 1u);
        EXPECT_EQ(all.at(0).argument, 0u);
        EXPECT_EQ(all[0].access_mode, O_RDWR);
        return all[0];
    }
    stepped_lines telephone;
};

TEST_F(driver, requests_go_to_the_first_open_line_device) {
    struct {
        std::vector<int> open;
        int used;
    } const table[] = {{{}, 0}, {{0}, 0}, {{3}, 3}, {{3, 1}, 1}, {{0, 1, 2, 3}, 0}};
    for (auto const& row : table) {
        for (int const i : row.open)
            devmgrs[i].open();
        driver_spy::take();
        for (bool const led : {false, true}) {
            led ? send_led_call_cmd_to_driver(1) : reset_base(2);
            driver_spy::request const seen = only_request();
            EXPECT_EQ(seen.file, std::filesystem::canonical(telephone.path(row.used)));
            EXPECT_EQ(seen.fd == devmgrs[row.used].get_fd(), !row.open.empty());
            EXPECT_EQ(fcntl(seen.fd, F_GETFD) != -1, !row.open.empty()) << "opened for the request only";
        }
        for (int const i : row.open)
            devmgrs[i].close();
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
        {2, 0x20003002, 7, ""},
        {3, 0x20003003, 42, "000B 000C 001B 0002 0003 000F 0002 002A"},
        {3, 0x20003003, -1, "000B 000C 001B 0002 0003 000F 0002 FFFF"},
        {3, 0x20003003, 0x12345, "000B 000C 001B 0002 0003 000F 0002 2345"},
        {4, 0x20003004, 7, ""},
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
    for (int const on : {0, 1, 256}) {
        send_led_call_cmd_to_driver(on);
        EXPECT_EQ(only_request().number, on ? 0x20003006u : 0x20003007u) << on;
    }
    EXPECT_EQ(peer.transcript(), lines{});
}

TEST_F(driver, without_a_device_nothing_is_asked_and_nothing_reported) {
    for (int i = 0; i < devmgr_count; i++)
        std::filesystem::remove(telephone.path(i));
    reset_base(3);
    send_led_call_cmd_to_driver(1);
    EXPECT_EQ(peer.transcript(), (lines{"5 reset base command 3", "7 Failure to send command to driver",
                                        "7 Failure to send command led call to driver"}));
    EXPECT_EQ(driver_spy::take(), std::vector<driver_spy::request>{});
}

}  // namespace
