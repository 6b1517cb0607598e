#include <cstdlib>

#include "tests/phone/device.h"

namespace {

constexpr char const* secret = "open sesame";

/// The tests' registrar, a program that knows nothing of ours.
std::vector<std::string> registrar(std::string const& transport, std::uint16_t port,
                                   std::vector<std::string> const& more = {}) {
    std::vector<std::string> all{"/usr/bin/env", "python3", REGISTRAR, transport, std::to_string(port), secret};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

/// Both telephones registered at a port of this host; they call everybody through it with a leading 9.
struct registered_device : device {
    registered_device(std::string const& transport, std::uint16_t port, std::string const& more = {})
        : device("{ keys = \"9xxx\", call = \"sip:{}@127.0.0.1:" + std::to_string(port) + "\" }",
                 "[[registrar]]\nname = \"pbx\"\ndomain = \"127.0.0.1:" + std::to_string(port) + "\"\ntransport = \"" +
                     transport + "\"\nkeep_alive_s = 1\n" + more,
                 "registrar = \"pbx\"\npassword_env = \"PHONE_TEST_PASSWORD\"\n") {}
};

class phone_network : public testing::Test {
protected:
    void SetUp() override { setenv("PHONE_TEST_PASSWORD", secret, 1); }
};

class phone_network_by : public phone_network, public testing::WithParamInterface<char const*> {};

TEST_P(phone_network_by, registers_and_calls_through_the_registrar) {
    std::uint16_t const port = free_port();
    child pbx(registrar(GetParam(), port));
    ASSERT_TRUE(pbx.wait_for_text("listening"));
    registered_device here(GetParam(), port);
    ASSERT_TRUE(here.phone.wait_for_text("line 0: registered at 127.0.0.1"));
    ASSERT_TRUE(here.phone.wait_for_text("line 1: registered at 127.0.0.1"));
    EXPECT_TRUE(pbx.wait_for_text("keep-alive"));
    here.driver_says("off-hook 0");
    here.dial(0, "9101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: caller 100"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    here.driver_says("on-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\"ended_by\":\"far\""));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    for (std::string const request : {"INVITE 100 good", "BYE 101 good", "removed 100", "removed 101"})
        EXPECT_TRUE(pbx.wait_for_text(request));
    EXPECT_EQ(pbx.out.find("wrong"), std::string::npos) << pbx.out;
    EXPECT_EQ((here.phone.out + here.phone.err).find(secret), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(, phone_network_by, testing::Values("udp", "tcp"), [](auto const& one) { return one.param; });

TEST_F(phone_network, registers_again_in_time_and_says_why_it_cannot) {
    std::uint16_t const port = free_port();
    {
        child pbx(registrar("udp", port, {"--expires", "2"}));
        ASSERT_TRUE(pbx.wait_for_text("listening"));
        registered_device here("udp", port);
        std::string const once = "REGISTER 100 good\n";
        ASSERT_TRUE(pbx.wait_for_text(once));
        std::size_t const first = pbx.out.find(once);
        for (int tries = 0; tries < 600 && pbx.out.rfind(once) == first; tries++, usleep(100'000))
            pbx.wait_for_text(once);  // reads on
        EXPECT_NE(pbx.out.rfind(once), first);
        EXPECT_EQ(here.phone.err.find("line 0: not registered"), std::string::npos);
    }
    setenv("PHONE_TEST_PASSWORD", "guessed", 1);
    for (auto const& [algorithm, reason] :
         {std::pair{"MD5", "401 Prove it"}, std::pair{"SHA-256", "it asks for another digest than MD5"}}) {
        child pbx(registrar("udp", port, {"--algorithm", algorithm}));
        ASSERT_TRUE(pbx.wait_for_text("listening"));
        registered_device here("udp", port);
        EXPECT_TRUE(here.phone.wait_for_text("line 1: not registered at 127.0.0.1:" + std::to_string(port) + ": " + reason));
    }
}

TEST_F(phone_network, calls_between_lines_go_on_while_the_registrar_is_away) {
    std::uint16_t const port = free_port();
    registered_device here("tcp", port);
    ASSERT_TRUE(here.phone.wait_for_text("line 1: not registered"));
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: caller 100"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"ended_by\":\"telephone\""));
    child pbx(registrar("tcp", port));
    EXPECT_TRUE(here.phone.wait_for_text("line 0: registered")) << "within a minute";
}

}  // namespace
