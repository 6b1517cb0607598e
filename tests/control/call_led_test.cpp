#include "control/call_led.h"

#include <string>

#include <gtest/gtest.h>

#include "lib/timeout.h"
#include "tests/control/driver_spy.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

/// One LED, started before the clock's 32-bit reading wraps and dark afterwards.
class call_light : public media_fixture {
protected:
    call_light() : media_fixture(7), clock(0xFFFFFF80) {
        init_timestamps();
        driver_spy::take();
    }
    ~call_light() override {
        set_led1(0);
        driver_spy::take();
    }

    /// What the driver was told since the last call: "on", "off".
    static std::string told() {
        std::string all;
        for (auto const& request : driver_spy::take())
            all += request.number == 0x20003006 ? "on " : request.number == 0x20003007 ? "off " : "? ";
        return all;
    }
    /// Waits for the next step as the main loop does; 0 when none is scheduled.
    int wait() {
        int const ms = timeout_queue::global_queue.delay(true);
        if (ms < 0)
            return 0;
        clock.advance_ms(static_cast<unsigned>(ms));
        timeout_queue::global_queue.next();
        return ms;
    }
    /// The steps from now on: "on 500 off 500 ".
    std::string steps(int n) {
        std::string all;
        for (int i = 0; i < n; i++) {
            all += told();
            all += std::to_string(wait()) + " ";
        }
        return all;
    }
    static int timers() { return timeout_queue::global_queue.size(); }

    manual_clock clock;
    stepped_lines telephone;
};

TEST_F(call_light, patterns_repeat_for_ever) {
    struct {
        int pattern;
        int entries;
        char const* cycle;
    } const table[] = {
        {1, 2, "on 500 off 500 "},
        {2, 10, "on 50 off 50 on 50 off 50 on 50 off 50 on 50 off 50 on 50 off 2000 "},
        {3, 6, "on 100 off 50 on 100 off 50 on 100 off 2500 "},
        {4, 1, "off 2000 "},
        {65535, 1, "off 2000 "},
    };
    for (auto const& row : table) {
        set_led1(row.pattern);
        for (int cycle = 0; cycle < 4; cycle++)
            EXPECT_EQ(steps(row.entries), row.cycle) << "pattern " << row.pattern << " cycle " << cycle;
        told();
        EXPECT_EQ(timers(), 1);
    }
}

TEST_F(call_light, a_new_pattern_starts_afresh_from_every_step) {
    static constexpr struct {
        int pattern;
        char const* start;
    } table[] = {{0, "off 0 0 "},
                 {1, "on 500 off 500 "},
                 {2, "on 50 off 50 "},
                 {3, "on 100 off 50 "},
                 {9, "off 2000 off 2000 "}};
    for (auto const& before : table)
        for (auto const& [after, start] : table)
            for (int at = 0; at < 11; at++) {
                set_led1(before.pattern);
                steps(at);
                clock.advance_ms(20);
                told();
                set_led1(after);
                EXPECT_EQ(timers(), after != 0) << "the old timer is gone";
                EXPECT_EQ(steps(2), start) << before.pattern << " at step " << at;
            }
}

}  // namespace
