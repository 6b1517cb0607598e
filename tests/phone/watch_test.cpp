#include <sys/stat.h>

#include "tests/phone/device.h"

namespace {

/// The last object that fxsphone has written of a call on this line.
nlohmann::json record_of(device& here, int line) {
    std::string const begin = "{\"line\":" + std::to_string(line);
    EXPECT_TRUE(here.phone.wait_for_text(begin));
    std::size_t const at = here.phone.out.rfind(begin);
    return at == std::string::npos
               ? nlohmann::json()
               : nlohmann::json::parse(here.phone.out.substr(at, here.phone.out.find('\n', at) - at));
}

TEST(phone_watch, tells_what_lines_do_and_how_calls_were) {
    device here;
    EXPECT_EQ(here.status()["lines"][0]["state"], "on_hook");
    EXPECT_EQ(here.led().find('#'), std::string::npos);
    here.driver_says("off-hook 0");
    ASSERT_TRUE(here.hears(0, -30, -10));
    here.dial(0, "101");
    EXPECT_TRUE(here.led_will_show("#.#.#")) << "one rings";
    here.driver_says("off-hook 1");
    sleep(12);  // two of the process's RTCP intervals
    auto const status = here.status();
    EXPECT_TRUE(status["media_process"]);
    EXPECT_EQ(status["lines"][1]["state"], "talking");
    EXPECT_EQ(status["lines"][1]["calls"][0]["answered"], true);
    EXPECT_EQ(status["lines"][2]["calls"].size(), 0u);
    EXPECT_TRUE(here.led_will_show(std::string(8, '#'))) << "a receiver is off";
    here.driver_says("on-hook 1");
    here.driver_says("on-hook 0");
    auto const out = record_of(here, 0);
    EXPECT_GE(out["lift_to_tone_ms"], 0);
    EXPECT_LT(out["lift_to_tone_ms"], 50);
    EXPECT_GT(out["last_key_to_ringing_ms"], 0);
    EXPECT_GT(out["quality"]["sent_packets"], 200) << out;
    EXPECT_TRUE(out["quality"]["own_jitter_ms"].is_number());
    EXPECT_GT(out["quality"]["own_mos"], 3.5) << "both ends agree on extended reports";
    here.phone.end(SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(here.folder + "/status"));
}

TEST(phone_watch, tells_other_users_nothing) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    device here;
    std::string const socket = here.folder + "/status";
    EXPECT_EQ(chmod(socket.c_str(), 0777), 0) << "what keeps them out is not the file's mode";
    for (auto const& [user, bytes] : {std::pair{"0", 1}, {"65534", 0}}) {
        child asking({"/usr/bin/setpriv", "--reuid", user, "--clear-groups", "/usr/bin/env", "python3", "-c",
                      "import socket, sys; s = socket.socket(socket.AF_UNIX); s.connect(sys.argv[1]); "
                      "sys.exit(len(s.recv(1)))",
                      socket});
        EXPECT_EQ(asking.wait(), bytes) << user << asking.err;
    }
}

TEST(phone_watch, marks_or_ends_a_call_without_media) {
    for (auto const& [ends, ended_by] : {std::pair{"true", "media"}, {"false", "telephone"}}) {
        std::uint16_t const port = free_port();
        device here("{ keys = \"0.\", call = \"sip:{}@127.0.0.1:" + std::to_string(port) + "\" }",
                    std::string("[calls]\nmedia_timeout_ms = 10000\nmedia_timeout_ends = ") + ends + "\n");
        child agent(sipp("uas", port, {}));
        here.driver_says("off-hook 0");
        here.dial(0, "07#");
        ASSERT_TRUE(here.phone.wait_for_text("line 0: nothing is received from"));
        EXPECT_TRUE(ends == std::string("false") || here.hears(0, -40, -5)) << "congestion tone";
        here.driver_says("on-hook 0");
        EXPECT_EQ(agent.wait(), 0) << "ended from here";
        auto const record = record_of(here, 0);
        EXPECT_EQ(record["media_lost"], true);
        EXPECT_EQ(record["ended_by"], ended_by);
    }
}

TEST(phone_watch, keeps_a_call_while_the_driver_is_away) {
    device here;
    here.driver_says("off-hook 0");
    here.call(0, 1);
    std::string const pipe = here.folder + "/pipe";
    std::filesystem::create_hard_link(here.folder + "/fxs0", pipe);  // the other name goes with the lines
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    for (char const* again : {"off-hook 0\n", "off-hook 1\n"}) {
        std::ofstream(pipe) << again;
        sleep(1);
        EXPECT_EQ(here.status()["lines"][0]["state"], "talking");
    }
    std::ofstream(pipe) << "on-hook 0\n";
    EXPECT_EQ(record_of(here, 0)["ended_by"], "telephone");
}

}  // namespace
