#include <cstdlib>

#include "tests/phone/device.h"
#include "tests/phone/far_agent.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/support/rtp_builder.h"

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
                     transport + "\"\n" + more,
                 "registrar = \"pbx\"\npassword_env = \"PHONE_TEST_PASSWORD\"\n") {}
};

/// 20 ms of a tone of 1 kHz.
std::string loud_alaw() {
    std::string payload;
    for (int i = 0; i < 20; i++)
        payload += from_hex("D5 A5 AF A5 55 25 2F 25");
    return payload;
}

class phone_network : public testing::Test {
protected:
    void SetUp() override { setenv("PHONE_TEST_PASSWORD", secret, 1); }
};

std::string tls_table(std::string const& keys) {
    return "[tls]\nport = " + std::to_string(free_port()) + "\n" + keys + "\n";
}

/// Made by openssl for this test: certificate and key in one file, for a name of the form "IP:127.0.0.1" or "DNS:a".
std::string certificate_for(std::string const& name) {
    std::string const file = testing::TempDir() + "phone-certificate-" + name.substr(0, 3) + ".pem";
    std::string const command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -noenc -days 2 -subj "
        "/CN=test -addext subjectAltName=" +
        name + " -keyout " + file + ".key -out " + file + " 2>/dev/null && cat " + file + ".key >> " + file;
    EXPECT_EQ(std::system(command.c_str()), 0) << "the tests need openssl";
    return file;
}

class phone_network_by : public phone_network, public testing::WithParamInterface<char const*> {};

TEST_P(phone_network_by, registers_and_calls_through_the_registrar) {
    std::uint16_t const port = free_port();
    std::string const pem = certificate_for("IP:127.0.0.1");
    // With SHA-256 only what we begin is proven, so the caller hangs up.
    bool const secure = GetParam() == std::string("tls"), by_sha = GetParam() == std::string("tcp");
    child pbx(registrar(GetParam(), port,
                        secure   ? std::vector{std::string("--certificate"), pem}
                        : by_sha ? std::vector{std::string("--algorithms"), std::string("SHA-256")}
                                 : std::vector<std::string>()));
    ASSERT_TRUE(pbx.wait_for_text("listening"));
    registered_device here(GetParam(), port, "keep_alive_s = 1\n" + tls_table("ca_file = \"" + pem + "\""));
    ASSERT_TRUE(here.phone.wait_for_text("line 0: registered at 127.0.0.1"));
    ASSERT_TRUE(here.phone.wait_for_text("line 1: registered at 127.0.0.1"));
    EXPECT_TRUE(pbx.wait_for_text("keep-alive"));
    here.driver_says("off-hook 0");
    here.dial(0, "9101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: caller 100"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    here.driver_says(by_sha ? "on-hook 0" : "on-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\"ended_by\":\"far\""));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    std::string const ended = by_sha ? "BYE 100 good SHA-256" : "BYE 101 good";
    for (std::string const& request :
         {std::string("INVITE 100 good"), ended, std::string("removed 100"), std::string("removed 101")})
        EXPECT_TRUE(pbx.wait_for_text(request)) << pbx.out;
    EXPECT_EQ(pbx.out.find("wrong"), std::string::npos) << pbx.out;
    EXPECT_EQ((here.phone.out + here.phone.err).find(secret), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(, phone_network_by, testing::Values("udp", "tcp", "tls"),
                         [](auto const& one) { return one.param; });

TEST_F(phone_network, registers_again_in_time_and_says_why_it_cannot) {
    std::uint16_t const port = free_port();
    {
        child pbx(registrar("udp", port, {"--expires", "2"}));
        ASSERT_TRUE(pbx.wait_for_text("listening"));
        registered_device here("udp", port);
        std::string const once = "REGISTER 100 good";
        ASSERT_TRUE(pbx.wait_for_text(once));
        std::size_t const first = pbx.out.find(once);
        for (int tries = 0; tries < 600 && pbx.out.rfind(once) == first; tries++, usleep(100'000))
            pbx.wait_for_text(once);  // reads on
        EXPECT_NE(pbx.out.rfind(once), first);
        EXPECT_EQ(here.phone.err.find("line 0: not registered"), std::string::npos);
    }
    setenv("PHONE_TEST_PASSWORD", "guessed", 1);
    for (auto const& [algorithm, reason] :
         {std::pair{"MD5", "401 Prove it, the password is wrong"},
          {"SHA-512-256", "401 Prove it, it asks for the digest algorithm SHA-512-256"}}) {
        child pbx(registrar("udp", port, {"--algorithms", algorithm}));
        ASSERT_TRUE(pbx.wait_for_text("listening"));
        registered_device here("udp", port);
        EXPECT_TRUE(
            here.phone.wait_for_text("line 1: not registered at 127.0.0.1:" + std::to_string(port) + ": " + reason));
    }
}

TEST_F(phone_network, trusts_only_certificates_that_are_vouched_for_and_of_the_right_name) {
    struct certified {
        std::string name, keys, outcome;
    };
    std::string const ca_file = "ca_file = \"" + certificate_for("DNS:elsewhere.example") + "\"";
    for (certified const& one : std::vector<certified>{
             {"IP:127.0.0.1", "", "TLS: certificate refused: self-signed certificate"},
             {"DNS:elsewhere.example", ca_file, "TLS: certificate refused: hostname mismatch"},
             {"DNS:elsewhere.example", "verify = false", "line 0: registered"},
         }) {
        std::uint16_t const port = free_port();
        child pbx(registrar("tls", port, {"--certificate", certificate_for(one.name)}));
        ASSERT_TRUE(pbx.wait_for_text("listening"));
        registered_device here("tls", port, tls_table(one.keys));
        EXPECT_TRUE(here.phone.wait_for_text(one.outcome)) << here.phone.err;
    }
}

TEST_F(phone_network, keeps_a_flow_of_the_registrar_alive) {
    std::uint16_t const port = free_port();
    child pbx(registrar("tcp", port, {"--algorithms", "SHA-512-256,SHA-256,MD5"}));
    ASSERT_TRUE(pbx.wait_for_text("listening"));
    registered_device here("tcp", port, "outbound = true\nkeep_alive_s = 0\n");
    EXPECT_TRUE(pbx.wait_for_text("REGISTER 100 good SHA-256")) << "the first that both know: RFC 8760 section 2.4";
    EXPECT_TRUE(pbx.wait_for_text("flow f81d4fae-7dec-11d0-a765-00a0c91e6bf6")) << "RFC 5626 section 4.2";
    EXPECT_TRUE(pbx.wait_for_text("keep-alive")) << "libre waits for at least 16 s";
    EXPECT_TRUE(here.led_will_show(std::string(40, '.') + "#")) << "a flash every 5 s: all are registered";
}

TEST_F(phone_network, answers_where_a_request_came_from) {
    device here;
    udp_peer const far;
    struct asked {
        std::string method, status;
    };
    for (asked const& one :
         std::vector<asked>{{"OPTIONS", "SIP/2.0 200 OK"}, {"PUBLISH", "SIP/2.0 501"}, {"REFER", "SIP/2.0 603"}}) {
        far.send(ip_port(str(127, 0, 0, 1), here.sip_port),
                 one.method + " sip:100@here SIP/2.0\r\nVia: SIP/2.0/UDP 192.0.2.9:9;rport;branch=z9hG4bK" +
                     one.method + "\r\nFrom: <sip:a@b>;tag=1\r\nTo: <sip:100@here>\r\nCall-ID: a\r\nCSeq: 1 " +
                     one.method + "\r\nMax-Forwards: 70\r\nContent-Length: 0\r\n\r\n");
        std::string const answer = next_datagram(far);
        EXPECT_TRUE(answer.starts_with(one.status)) << answer;
        EXPECT_NE(answer.find("\r\nAllow: INVITE,ACK,BYE,CANCEL,OPTIONS"), std::string::npos) << answer;
        EXPECT_NE(answer.find(";received=127.0.0.1"), std::string::npos) << answer;
        EXPECT_NE(answer.find(";rport=" + std::to_string(bound_port(far.fd()))), std::string::npos) << answer;
    }
}

TEST_F(phone_network, calls_between_lines_go_on_while_a_registrar_is_away) {
    std::uint16_t const port = free_port(), second_port = free_port();
    auto pbx = std::make_unique<child>(registrar("tcp", port));
    child second(registrar("udp", second_port));
    ASSERT_TRUE(pbx->wait_for_text("listening"));
    ASSERT_TRUE(second.wait_for_text("listening"));
    registered_device here(
        "tcp", port,
        "keep_alive_s = 1\n[[registrar]]\nname = \"second\"\ndomain = \"127.0.0.1:" + std::to_string(second_port) +
            "\"\n[[line]]\nnumber = 3\nuser = \"103\"\nregistrar = \"second\"\npassword = \"" + secret + "\"\n");
    ASSERT_TRUE(here.phone.wait_for_text("line 1: registered"));
    ASSERT_TRUE(here.phone.wait_for_text("line 3: registered"));
    pbx->end(SIGKILL);
    std::string const lost = ": not registered at 127.0.0.1:" + std::to_string(port) + ": the connection is lost";
    ASSERT_TRUE(here.phone.wait_for_text("line 0" + lost)) << "long before the next refresh";
    ASSERT_TRUE(here.phone.wait_for_text("line 1" + lost));
    here.driver_says("off-hook 3");
    here.dial(3, "9100");
    EXPECT_TRUE(second.wait_for_text("INVITE 103 good")) << "the other registrar is there";
    EXPECT_EQ(second.out.find("REGISTER 100"), std::string::npos);
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: caller 100"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    pbx = std::make_unique<child>(registrar("tcp", port));
    ASSERT_TRUE(pbx->wait_for_text("REGISTER 101 good")) << "within a minute";
    ASSERT_TRUE(pbx->wait_for_text("REGISTER 100 good"));
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"ended_by\":\"telephone\""));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_TRUE(pbx->wait_for_text("removed 101")) << pbx->out;
}

std::string from_base64(std::string_view text) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    for (std::size_t i = 0; i < text.size() && digits.find(text[i]) != digits.npos; i++) {
        bits = bits << 6 | static_cast<unsigned>(digits.find(text[i]));
        if (i % 4 != 0)
            bytes += static_cast<char>(bits >> (6 - 2 * (i % 4)));
    }
    return bytes;
}

constexpr char const* far_key = "d0RmdmcmVCspeEc3QGZiNWpVLFJhQX1cfHAwJSoj";

TEST_F(phone_network, speaks_srtp_with_an_independent_far_end) {
    std::uint16_t const port = free_port();
    far_agent far(port);
    device here("{ keys = \"0\", call = \"sip:far@127.0.0.1:" + std::to_string(far.port()) + "\" }", "",
                "srtp = \"required\"\n", port);
    here.driver_says("off-hook 0");
    here.dial(0, "0");
    std::string const invite = far.receive_call();
    ASSERT_NE(invite.find(" RTP/SAVP 8 0"), std::string::npos) << invite;
    std::string const its_key = from_base64(between(invite, "AES_CM_128_HMAC_SHA1_32 inline:", "|\r"));
    ASSERT_EQ(its_key.size(), 30u);
    far.answer(invite, "200 OK", std::string("RTP/SAVP 8\r\na=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:") + far_key);
    ASSERT_FALSE(far.receive("ACK").empty());

    libsrtp_peer listener(libsrtp_peer::receives, to_str(its_key), 4);
    str packet = to_str(next_datagram(far.media));
    ASSERT_TRUE(listener.unprotect(packet));
    EXPECT_EQ(rtp_packet::parse(to_string(packet)).payload_type, 8);

    libsrtp_peer speaker(libsrtp_peer::sends, to_str(from_base64(far_key)), 4);
    ip_port const to(str(127, 0, 0, 1), std::stoi(between(invite, "\r\nm=audio ", " ")));
    for (std::uint16_t number = 0; number < 150; number++, usleep(20'000)) {
        str spoken = to_str(rtp_packet{
            .payload_type = 8, .sequence = number, .timestamp = number * 160u, .ssrc = 7, .payload = loud_alaw()}
                                .build());
        ASSERT_TRUE(speaker.protect(spoken));
        far.media.send(to, to_string(spoken));
    }
    EXPECT_TRUE(here.hears(0, -20, 0));
    here.driver_says("on-hook 0");
    std::string const bye = far.receive("BYE");
    ASSERT_FALSE(bye.empty());
    far.answer(bye, "200 OK");
    ASSERT_TRUE(here.phone.wait_for_text("\"ended_by\":\"telephone\""));
    EXPECT_EQ(here.phone.end(SIGTERM), 0);
    EXPECT_EQ((here.phone.out + here.phone.err).find("inline:d"), std::string::npos) << "keys are for nobody's eyes";
}

}  // namespace
