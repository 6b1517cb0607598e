#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

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

nlohmann::json status_of(device& here) {
    child asked({FXSPHONE, "--status", here.folder + "/phone.toml"});
    EXPECT_EQ(asked.wait(), 0) << asked.err;
    return nlohmann::json::parse(asked.out, nullptr, false);
}

std::string led(device& here) {
    std::ifstream in(here.folder + "/lines/led");
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(phone_watch, tells_what_lines_do_and_how_calls_were) {
    std::string const socket = testing::TempDir() + "phone-status-" + std::to_string(getpid());
    device here({}, "[status]\nsocket = \"" + socket + "\"\n");
    EXPECT_EQ(status_of(here)["lines"][0]["state"], "on_hook");
    EXPECT_EQ(led(here).find('#'), std::string::npos);
    here.driver_says("off-hook 0");
    ASSERT_TRUE(here.hears(0, -30, -10));
    here.call(0, 1);
    sleep(12);  // two of the process's RTCP intervals
    auto const status = status_of(here);
    EXPECT_TRUE(status["media_process"]);
    EXPECT_EQ(status["lines"][1]["state"], "talking");
    EXPECT_EQ(status["lines"][1]["calls"][0]["answered"], true);
    EXPECT_EQ(status["lines"][2]["calls"].size(), 0u);
    EXPECT_NE(led(here).find('#'), std::string::npos) << led(here);
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
    EXPECT_FALSE(std::filesystem::exists(socket));
}

TEST(phone_watch, ends_a_call_without_media) {
    std::uint16_t const port = free_port();
    device here("{ keys = \"0.\", call = \"sip:{}@127.0.0.1:" + std::to_string(port) + "\" }",
                "[calls]\nmedia_timeout_ms = 10000\n");
    child agent(sipp("uas", port, {}));
    here.driver_says("off-hook 0");
    here.dial(0, "07#");
    EXPECT_EQ(agent.wait(), 0) << "ended from here";
    auto const record = record_of(here, 0);
    EXPECT_EQ(record["media_lost"], true);
    EXPECT_EQ(record["ended_by"], "media");
    EXPECT_TRUE(here.hears(0, -40, -5)) << "congestion tone";
}

}  // namespace
