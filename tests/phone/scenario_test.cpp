#include <ranges>

#include "tests/phone/device.h"

/// What a far end may do with a call at an awkward moment: scenarios of SIPp, an independent agent, in scenarios/.
namespace {

/// Once fxsphone has sent or received `awaited`, the driver says `word`.
struct step {
    char const* awaited;
    char const* word;
};

struct scene {
    char const* scenario;
    bool calls_us;  ///< the far end calls line 1; else line 0 calls it
    std::vector<step> steps;
    char const* record;  ///< stands in the call's JSON line
};

std::vector<step> const lifted = {{"SIP/2.0 180 Ringing", "off-hook 1"}};

std::vector<scene> const scenes = {
    {"cancelled", true, {}, "\"answered\":false"},
    {"cancelled_late", true, lifted, "\"sip_code\":200,\"ended_by\":\"far\""},
    {"refreshed", true, lifted, "\"sip_code\":200,\"ended_by\":\"far\""},
    {"unacknowledged", true, lifted, "\"ended_by\":\"far\""},
    {"answered_late", false, {{"SIP/2.0 180 Ringing", "on-hook 0"}}, "\"ended_by\":\"telephone\""},
    {"forked", false, {{"SIP/2.0 200 The first is told", "on-hook 0"}}, "\"ended_by\":\"telephone\""},
    {"byes_cross", false, {{"\nACK sip:", "on-hook 0"}}, "\"ended_by\":\"telephone\""},
};

std::ptrdiff_t sockets_of(pid_t process) {
    return std::ranges::count_if(std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd"),
                                 [](auto const& one) {
                                     std::error_code gone;
                                     return std::filesystem::read_symlink(one, gone).string().starts_with("socket:");
                                 });
}

/// Waits until no line knows of a call and the process has no more sockets than before.
bool nothing_is_left(device& here, std::ptrdiff_t sockets) {
    for (int tries = 0; tries < 100; tries++, usleep(100'000))
        if (std::ranges::all_of(here.status()["lines"],
                                [](auto const& line) { return line["state"] == "on_hook" && line["calls"].empty(); }) &&
            sockets_of(here.process->id()) == sockets)
            return true;
    return false;
}

class phone_scenario : public testing::TestWithParam<scene> {};

TEST_P(phone_scenario, is_played_to_its_end) {
    scene const& one = GetParam();
    std::uint16_t const port = free_port();
    device here("{ keys = \"0\", call = \"sip:far@127.0.0.1:" + std::to_string(port) + "\" }");
    std::ptrdiff_t const sockets = sockets_of(here.process->id());
    child agent(
        sipp(std::string(one.scenario) + ".xml", port, {"-s", "101", "127.0.0.1:" + std::to_string(here.sip_port)}));
    if (!one.calls_us) {
        here.driver_says("off-hook 0");
        here.dial(0, "0");
    }
    for (step const& each : one.steps) {
        ASSERT_TRUE(here.phone.wait_for_text(each.awaited)) << here.phone.err;
        here.driver_says(each.word);
    }
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err << here.phone.err;
    EXPECT_TRUE(here.phone.wait_for_text(one.record)) << here.phone.out;
    here.driver_says(one.calls_us ? "on-hook 1" : "on-hook 0");
    EXPECT_TRUE(nothing_is_left(here, sockets)) << here.status();
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
}

INSTANTIATE_TEST_SUITE_P(, phone_scenario, testing::ValuesIn(scenes),
                         [](auto const& one) { return one.param.scenario; });

}  // namespace
