#include <gtest/gtest.h>

#include <utility>

#include "tests/phone/device.h"
#include "tests/phone/far_agent.h"

namespace {

/// A path for each test, at which nothing is kept yet.
std::string fresh_state() {
    std::string const path = testing::TempDir() + "phone-state-" + std::to_string(getpid());
    std::filesystem::remove(path);
    return path;
}

std::string tables(std::string const& state) {
    return "[calls]\nstate = \"" + state +
           "\"\n[codes]\nforward_always = \"*21*\"\ndo_not_disturb = \"*26#\"\nhide_number = \"*31*\"\n"
           "call_back = \"*69\"\nredial = \"*66\"\n";
}

TEST(phone_feature, outlives_a_restart) {
    std::string const state = fresh_state();
    {
        device here({}, tables(state));
        here.driver_says("off-hook 1");
        here.dial(1, "*21*102");
        here.driver_says("on-hook 1");
        here.driver_says("off-hook 0");
        here.dial(0, "*31*101");
        ASSERT_TRUE(here.phone.wait_for_text("SIP/2.0 302 Moved Temporarily"));
        ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: caller anonymous Anonymous")) << here.lines.out;
        EXPECT_TRUE(here.phone.wait_for_text("\nPrivacy: id"));
        here.driver_says("on-hook 0");
        ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: stop"));
        here.driver_says("off-hook 0");
        here.dial(0, "101");
        ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: caller 100"));
        here.driver_says("on-hook 0");
    }
    {
        device here({}, tables(state));  // its port is another one: what was kept leads to the old one
        here.driver_says("off-hook 0");
        here.dial(0, "*66");
        ASSERT_TRUE(here.phone.wait_for_text("\nINVITE sip:101@")) << here.phone.err;
        here.driver_says("on-hook 0");
        here.driver_says("off-hook 0");
        here.dial(0, "101");
        ASSERT_TRUE(here.phone.wait_for_text("\nContact: <sip:102@127.0.0.1:"));
        here.driver_says("off-hook 2");
        here.dial(2, "*69");
        EXPECT_TRUE(here.phone.wait_for_text("\nINVITE sip:100@")) << here.phone.err;
        here.phone.end(SIGKILL);  // nobody will answer that
    }
    std::filesystem::remove(state);
}

TEST(phone_feature, does_not_disturb) {
    std::string const state = fresh_state();
    device here({}, tables(state));
    here.driver_says("off-hook 1");
    here.dial(1, "*26#");
    here.driver_says("on-hook 1");
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 486 Busy Here"));
    std::filesystem::remove(state);
}

TEST(phone_feature, sends_keys_as_info) {
    std::uint16_t const port = free_port();
    device here("{ keys = \"0.\", call = \"sip:{}@127.0.0.1:" + std::to_string(port) + "\" }", {}, "keys = \"info\"\n");
    child agent(sipp("uas", port, {}));
    here.driver_says("off-hook 0");
    here.dial(0, "07#");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:"));
    here.driver_says("key 0 9");
    EXPECT_TRUE(here.phone.wait_for_text("\nINFO sip:"));
    EXPECT_TRUE(here.phone.wait_for_text("\nSignal=9"));
    here.phone.end(SIGKILL);  // the agent knows no INFO and does not answer it
}

/// Keys of the telephone itself, not the driver's.
void press_on_line_0(device& here, std::vector<std::string> const& pairs) {
    for (std::string const& pair : pairs)
        for (std::string const& sound : {"tone " + pair + " -10", std::string("silence")}) {
            std::ofstream(here.folder + "/lines/line0.say") << sound;
            usleep(200'000);
        }
}

TEST(phone_feature, dials_what_the_process_hears_on_the_line) {
    device here({}, {}, "keys = \"none\"\n", free_port(), "detect");
    here.driver_says("off-hook 0");
    ASSERT_TRUE(here.hears(0, -30, -10)) << "dial tone";
    press_on_line_0(here, {"697+1209", "941+1336", "697+1209"});
    EXPECT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
}

/// How long line 0 has heard something and nothing in turn, in blocks of 20 ms. To be asked when it is recorded.
std::vector<int> turns_heard(device const& here) {
    auto const heard = read_wav(here.folder + "/heard0.wav");
    std::vector<int> turns(1);
    bool sounded = false;
    for (std::size_t at = 0; at + 160 <= heard.size(); at += 160) {
        double sum = 0;
        for (std::size_t i = at; i < at + 160; i++)
            sum += std::abs(static_cast<double>(heard[i]));
        if (bool const sounds = sum / 160 > 200; std::exchange(sounded, sounds) != sounds)
            turns.push_back(0);
        turns.back()++;
    }
    return turns;
}

TEST(phone_feature, takes_keys_and_message_summaries) {
    device here;
    child agent(sipp("message_summary.xml", free_port(), {"-s", "100", "127.0.0.1:" + std::to_string(here.sip_port)}));
    EXPECT_EQ(agent.wait(), 0) << here.phone.err;
    here.driver_says("off-hook 0");
    sleep(4);
    here.driver_says("on-hook 0");
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    EXPECT_GE(turns_heard(here).size(), 11u) << "the tone comes and goes in blocks of 100 ms";
}

TEST(phone_feature, makes_tones_of_refusals) {
    for (auto const& [status, blocks] : {std::pair{"603 Decline", 24}, {"404 Not Found", 12}}) {
        std::uint16_t const port = free_port();
        far_agent far(port);
        device here("{ keys = \"0\", call = \"sip:far@127.0.0.1:" + std::to_string(far.port()) + "\" }",
                    "[tones]\nset = 3\n", {}, port);
        here.driver_says("off-hook 0");
        here.dial(0, "0");
        far.answer(far.receive_call(), status);
        EXPECT_FALSE(far.receive("ACK").empty());
        sleep(4);
        here.lines.end(SIGTERM);
        std::vector<int> turns = turns_heard(here);
        std::ranges::sort(turns);
        EXPECT_NEAR(turns[turns.size() / 2], blocks, 4) << status;
    }
}

TEST(phone_feature, subscribes_to_its_mailbox) {
    std::uint16_t const port = free_port();
    far_agent far(port);
    device here({}, {}, "mailbox = \"sip:vm@127.0.0.1:" + std::to_string(far.port()) + "\"\n", port);
    std::string const asked = far.receive_call("SUBSCRIBE");
    EXPECT_EQ(header(asked, "Event"), "message-summary");
    EXPECT_EQ(header(asked, "Accept"), "application/simple-message-summary");
    far.answer(asked, "200 OK", "", "Expires: 3600\r\n");
    far.notify(1, "Messages-Waiting: yes\r\n");
    EXPECT_FALSE(far.receive("SIP/2.0 200").empty());
    auto const lines = here.status()["lines"];
    EXPECT_NE(lines[0]["message_waiting"], lines[1]["message_waiting"]) << "of the one that has asked";
    EXPECT_TRUE(here.led_will_show("##.##"));
    here.phone.end(SIGKILL);
}

}  // namespace
