#include "tests/phone/device.h"

namespace {

TEST(phone_call, connects_two_lines_of_the_device) {
    device here;
    here.driver_says("off-hook 0");
    EXPECT_TRUE(here.hears(0, -30, -10)) << "dial tone";
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: caller 100"));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: stop"));
    here.both_speak();
    here.driver_says("on-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":1,\"direction\":\"in\""));
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":0,\"direction\":\"out\""));
    EXPECT_NE(here.phone.out.find("\"codec\":\"pcma\",\"sip_code\":200,\"ended_by\":\"far\""), std::string::npos)
        << here.phone.out;
    expect_end_and_heard(here, {{0, 1}, {1, 0}});
}

TEST(phone_call, connects_two_lines_by_ipv6) {
    std::uint16_t const port = free_port();
    device here("{ keys = \"6\", call = \"sip:101@[::1]:" + std::to_string(port) + "\" }", "", "", port);
    here.driver_says("off-hook 0");
    here.dial(0, "6");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:101@[::1]"));
    here.both_speak();
    here.driver_says("on-hook 1");
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"ended_by\":\"far\""));
    EXPECT_EQ(here.phone.err.find("\nc=IN IP4"), std::string::npos) << here.phone.err;
    expect_end_and_heard(here, {{0, 1}, {1, 0}});
}

TEST(phone_call, calls_an_independent_agent) {
    std::uint16_t const port = free_port();
    device here("{ keys = \"0.\", call = \"sip:{}@127.0.0.1:" + std::to_string(port) + "\" }");
    child agent(sipp("uas", port, {}));
    here.driver_says("off-hook 0");
    here.dial(0, "07#");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:"));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;  // ends the call, too
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err;
    EXPECT_NE(here.phone.out.find("\"codec\":\"pcmu\",\"sip_code\":200,\"ended_by\":\"telephone\""), std::string::npos);
}

TEST(phone_call, is_called_by_an_independent_agent) {
    device here;
    child agent(sipp("uac", free_port(), {"-s", "101", "-d", "500", "127.0.0.1:" + std::to_string(here.sip_port)}));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err;
    EXPECT_TRUE(here.phone.wait_for_text("\"ended_by\":\"far\""));
    EXPECT_TRUE(here.hears(1, -40, -5)) << "busy tone";
}

TEST(phone_call, refuses_what_it_cannot_take_and_gives_up_in_time) {
    device here;
    child nobody(sipp("uac", free_port(), {"-s", "999", "127.0.0.1:" + std::to_string(here.sip_port)}));
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 404 Not Found"));
    here.driver_says("off-hook 1");
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 486 Busy Here"));
    EXPECT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    here.driver_says("on-hook 1");
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"sip_code\":486,\"ended_by\":\"network\""));
}

TEST(phone_call, takes_a_call_back_and_holds_one) {
    device here;
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\nCANCEL sip:101"));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: stop"));
    here.driver_says("off-hook 1");
    here.dial(1, "100");
    ASSERT_TRUE(here.lines.wait_for_text("line 0  ring device: caller 101 Bell"));
    here.driver_says("off-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:100"));
    // A hook flash of line 1: it hears dial tone, line 0 is on hold; the next one brings it back.
    here.flash(1);
    ASSERT_TRUE(here.phone.wait_for_text("a=sendonly"));
    ASSERT_TRUE(here.phone.wait_for_text("a=recvonly"));
    here.flash(1);
    here.both_speak();
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":0,\"direction\":\"in\""));
    expect_end_and_heard(here, {{0, 1}, {1, 0}});
}

TEST(phone_call, joins_three_telephones) {
    device here;
    here.call_both();
    here.flash(0);
    here.driver_says("key 0 3");
    here.speak({"1"});
    here.speak({"2"});
    here.driver_says("on-hook 0");  // the conference ends with it
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":2,\"direction\":\"in\""));
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":1,\"direction\":\"in\""));
    expect_end_and_heard(here, {{1, 0}, {1, 2}, {2, 0}, {2, 1}});
}

TEST(phone_call, ends_calls_when_the_media_process_was_restarted) {
    device here;
    here.driver_says("off-hook 0");
    here.call(0, 1);
    here.restart_process();
    ASSERT_TRUE(here.phone.wait_for_text("the media process was restarted"));
    EXPECT_TRUE(here.phone.wait_for_text("\nBYE sip:"));
    EXPECT_TRUE(here.phone.wait_for_text("\"ended_by\":\"media\""));
    EXPECT_TRUE(here.hears(0, -30, -10)) << "dial tone";
    here.dial(1, "100");
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 486 Busy Here")) << "a new call";
}

}  // namespace
