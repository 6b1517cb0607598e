#include <gtest/gtest.h>

#include "tests/phone/device.h"

namespace {

/// The telephones of lines 1 and 2 talk, that of line 0 has nothing to do with it any more.
void expect_connected(device& here) {
    here.speak({"1"});
    here.speak({"2"});
    here.driver_says("on-hook 1");
    here.driver_says("on-hook 2");
    EXPECT_TRUE(here.phone.wait_for_text("\"line\":0,\"direction\":\"out\""));
    expect_end_and_heard(here, {{1, 2}, {2, 1}});
}

TEST(phone_transfer, connects_the_two_others_when_the_receiver_is_replaced) {
    device here;
    here.call_both();
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\nReplaces: ")) << here.phone.err;
    ASSERT_TRUE(here.phone.wait_for_text("\nSIP/2.0 200 OK\r\n\n")) << here.phone.err;
    expect_connected(here);
}

TEST(phone_transfer, connects_to_who_only_rings) {
    device here;
    here.driver_says("off-hook 0");
    here.call(0, 1);
    here.flash(0);
    here.dial(0, "102");
    ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: ring"));
    here.flash(0);
    here.driver_says("key 0 4");
    ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: stop"));
    ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: caller 101 Bell")) << here.lines.out;
    here.driver_says("off-hook 2");
    ASSERT_TRUE(here.phone.wait_for_text("\nSIP/2.0 200 OK\r\n\n")) << here.phone.err;
    EXPECT_TRUE(here.hears(0, -30, -10)) << "dial tone";
    expect_connected(here);
}

TEST(phone_transfer, rings_back_when_it_fails) {
    device here;
    here.driver_says("off-hook 2");
    here.driver_says("off-hook 0");
    here.call(0, 1);
    here.flash(0);
    here.dial(0, "102");
    here.driver_says("on-hook 0");  // busy already, or not yet: the call on hold rings
    ASSERT_TRUE(here.lines.wait_for_text("line 0  ring device: ring"));
    here.driver_says("off-hook 0");
    ASSERT_TRUE(here.lines.wait_for_text("line 0  ring device: stop"));
    here.both_speak();
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":1,\"direction\":\"in\""));
    expect_end_and_heard(here, {{0, 1}, {1, 0}});
}

TEST(phone_transfer, follows_an_independent_agent) {
    device here;
    child agent(sipp("refers.xml", free_port(), {"-s", "101", "127.0.0.1:" + std::to_string(here.sip_port)}));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: ring")) << here.phone.err;
    here.driver_says("off-hook 2");
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err << here.phone.err;
    here.speak({"1"});
    here.driver_says("on-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":2,\"direction\":\"in\""));
    expect_end_and_heard(here, {{1, 2}});
}

}  // namespace
