#include "phone/configuration.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "phone/driver_words.h"

using namespace fxsphone;

namespace {

std::string const process = "[process]\nport = 5500\n";
std::string const line_0 = "[[line]]\nnumber = 0\nuser = \"100\"\n";

std::string const pbx = "[[registrar]]\nname = \"a\"\ndomain = \"a.example:5070\"\n";

TEST(phone_configuration, names_the_place_of_a_mistake) {
    struct mistake {
        std::string text, problem;
    };
    for (mistake const& one : std::vector<mistake>{
             {"", "f:1:1: the configuration needs 'process'"},
             {process, "f:1:1: the configuration needs 'line'"},
             {"[process]\nport = 0\n", "f:2:8: 'port' is to be a number from 1 to 65535"},
             {"[process]\nport = \"x\"\n", "f:2:8: 'port' is to be a number from 1 to 65535"},
             {"[process]\n", "f:1:1: [process] needs 'port'"},
             {process + "prot = 1\n" + line_0, "f:3:1: [process] has no key 'prot'"},
             {process + "[spi]\n" + line_0, "f:3:2: the configuration has no key 'spi'"},
             {process + "[sip]\nip = \"localhost\"\n", "f:4:6: 'localhost' is no IP address"},
             {process + "[calls]\nflash = \"menu\"\n", "f:4:9: 'menu' is none of keys, swap, conference"},
             {process + "[ring]\ncountry = \"d \"\n", "f:4:11: the cadence of 'd ' is not known, 'cadence' takes any"},
             {process + "[ring]\ncadence = [1000, 49]\n",
              "f:4:18: 'cadence' is to be up to 8 numbers from 50 to 10000"},
             {process + "[calls]\nsession_expires_s = 89\n",
              "f:4:21: 'session_expires_s' is to be 0 or at least 90 (RFC 4028)"},
             {process + "[codes]\ncall_back = \"69x\"\n",
              "f:4:13: 'call_back' is to be made of the keys 0 to 9, * and #"},
             {process + "[codes]\nforward_off = \"#1\"\nhide_number = \"#1\"\n", "f:5:15: '#1' has a meaning already"},
             {process + line_0 + "keys = \"rfc4733\"\n", "f:6:8: 'rfc4733' is none of events, tones, info, none"},
             {process + line_0 + "hot_line = \"100\"\n",
              "f:6:12: 'hot_line' is to be an address that begins with sip: or sips:"},
             {process + "[sip]\nip6 = \"127.0.0.1\"\n", "f:4:7: '127.0.0.1' is no IPv6 address"},
             {process + "[[line]]\nnumber = 4\n", "f:4:10: 'number' is to be a number from 0 to 3"},
             {process + "[[line]]\nnumber = 0\nuser = \"a@b\"\n",
              "f:5:8: 'user' is the part of a SIP address before the @"},
             {process + line_0 + line_0, "f:7:10: there is a line 0 already"},
             {process + line_0 + "codecs = [\"pcma\", \"opus\"]\n",
              "f:6:19: 'opus' is none of pcmu, pcma, g729, gsm, g722, g726"},
             {process + "[dial]\nplan = [{ keys = \"1.2\", call = \"sip:x\" }]\n",
              "f:4:18: '.' is none of 0 to 9, *, #, x and a last '.'"},
             {process + "[dial]\nplan = [{ keys = \"1\", call = \"100\" }]\n",
              "f:4:30: 'call' is to be an address that begins with sip: or sips:"},
             {process + "[[registrar]]\nname = \"a\"\n" + line_0, "f:3:1: [[registrar]] needs 'domain'"},
             {process + pbx + "transport = \"sctp\"\n" + line_0, "f:6:13: 'sctp' is none of udp, tcp, tls"},
             {process + pbx + "proxy = \"sip:b\"\n" + line_0, "f:6:9: 'proxy' is to be a host or host:port"},
             {process + pbx + "outbound = true\n" + line_0, "f:6:12: 'outbound' needs 'instance' in [sip]"},
             {process + pbx + pbx + line_0, "f:6:1: there is a registrar 'a' already"},
             {process + "[tls]\nca_file = \"/no/such\"\n" + line_0, "f:4:11: '/no/such' can't be read"},
             {process + line_0 + "xr = [\"voip\"]\n",
              "f:6:7: 'voip' is none of pkt-loss-rle, pkt-dup-rle, pkt-rcpt-times, rcvr-rtt, stat-summary, "
              "voip-metrics"},
             {process + line_0 + "srtp = \"on\"\n", "f:6:8: 'srtp' is to be \"off\", \"optional\" or \"required\""},
             {process + line_0 + "registrar = \"b\"\n", "f:6:13: there is no registrar 'b'"},
             {process + line_0 + "password = \"x\"\npassword_env = \"HOME\"\n",
              "f:7:16: one of password, password_file and password_env is enough"},
             {process + line_0 + "password_env = \"NO_SUCH_NAME\"\n", "f:6:16: the environment has no 'NO_SUCH_NAME'"},
             {process + line_0 + "password_file = \"/no/such\"\n", "f:6:17: no password can be read from '/no/such'"},
         }) {
        configuration const read = read_configuration(one.text, "f");
        EXPECT_FALSE(read.settings.has_value());
        EXPECT_EQ(read.problem, one.problem) << one.text;
    }
    EXPECT_EQ(read_configuration(process + pbx + "transport = \"tls\"\n" + line_0, "f").problem,
              FXSPHONE_TLS ? "" : "f:6:13: this fxsphone was built without TLS");
    EXPECT_TRUE(read_configuration("port = = 3", "f").problem.starts_with("f:1:8: ")) << "no TOML";
}

TEST(phone_configuration, reads_the_example) {
    std::ifstream in(PHONE_EXAMPLE);
    std::string const text{std::istreambuf_iterator<char>(in), {}};
    configuration const read = read_configuration(text, "example");
    ASSERT_TRUE(read.settings) << read.problem;
    EXPECT_EQ(read.settings->telephones.size(), 2u);
    EXPECT_EQ(read.settings->cadence, (ring_cadence{1000, 4000}));
    EXPECT_EQ(read.settings->telephones[1].codecs, (std::vector<std::string>{"g722", "pcma", "pcmu"}));
    EXPECT_EQ(dial_plan(read.settings->plan).destination("101"), "sip:101@127.0.0.1:5060");
}

TEST(phone_configuration, reads_passwords_from_elsewhere) {
    std::string const file = testing::TempDir() + "phone-password";
    std::ofstream(file) << "open sesame\r\nsecond line\n";
    configuration const read = read_configuration(
        process + pbx + line_0 + "registrar = \"a\"\nauth_user = \"u\"\npassword_file = \"" + file + "\"\n", "f");
    ASSERT_TRUE(read.settings) << read.problem;
    telephone_settings const& one = read.settings->telephones[0];
    EXPECT_EQ(one.login.user, "u");
    EXPECT_EQ(one.login.password, "open sesame");
    EXPECT_EQ(one.registrar->way_out(), "sip:a.example:5070");
}

TEST(phone_driver, reads_what_the_driver_says_and_nothing_else) {
    using kind = driver_word::kind;
    EXPECT_EQ(read_driver_word("off-hook 3"), (driver_word{kind::off_hook, 3}));
    EXPECT_EQ(read_driver_word("on-hook 0"), (driver_word{kind::on_hook, 0}));
    EXPECT_EQ(read_driver_word("key 1 #"), (driver_word{kind::key, 1, '#'}));
    for (char const* text : {"", "off-hook", "off-hook ", "off-hook 4", "off-hook 10", "on-hook -1", "key 1", "key 1 ",
                             "key 1 E", "key 1 11", "key 11", " key 1 1", "ring 1"})
        EXPECT_FALSE(read_driver_word(text)) << text;
}

}  // namespace
