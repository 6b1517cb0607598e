#include "tests/phone/device.h"
#include "tests/phone/far_agent.h"
#include "tests/support/seed.h"

/// Two telephones talk while strangers do their worst at the SIP port.
namespace {

class established {
public:
    explicit established(std::string const& tables = {}, std::string const& more_plan = {}) : here(more_plan, tables) {
        here.driver_says("off-hook 0");
        EXPECT_TRUE(here.hears(0, -30, -10)) << "dial tone";
        here.call(0, 1);
    }
    /// The call is as if nothing had been.
    void expect_undisturbed() {
        here.driver_says("on-hook 1");
        ASSERT_TRUE(here.phone.wait_for_text("\"line\":1,\"direction\":\"in\""));
        here.driver_says("on-hook 0");
        here.lines.end(SIGTERM);
        expect_heard(here, 0, 1);
        expect_heard(here, 1, 0);
    }

    device here;
};

int count(std::string const& text, std::string const& what) {
    int found = 0;
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1))
        found++;
    return found;
}

TEST(phone_storm, leaves_calls_alone_at_200_invites_a_second) {
    std::uint16_t const port = free_port();
    std::string const echo_at = "127.0.0.1:" + std::to_string(port);
    established calls({}, "{ keys = \"0\", call = \"sip:echo@" + echo_at + "\" }");
    child echo(sipp("uas", port, {"-rtp_echo"}));
    calls.here.driver_says("off-hook 2");
    calls.here.dial(2, "0");
    ASSERT_TRUE(calls.here.phone.wait_for_text("\nACK sip:" + echo_at));
    auto words = sipp("uac", free_port(), {"-s", "999", "-r", "200", "-recv_timeout", "5000"});
    *std::next(std::ranges::find(words, "-m")) = "1600";
    words.push_back("127.0.0.1:" + std::to_string(calls.here.sip_port));
    child flood(words);
    calls.here.speak({"0", "1", "2"});
    EXPECT_EQ(flood.wait(), 1) << "SIPp counts refused calls as failed";
    ASSERT_TRUE(calls.here.phone.wait_for_text("SIP/2.0 404"));
    EXPECT_GE(count(calls.here.phone.err, "SIP/2.0 404"), 1600);
    calls.here.driver_says("on-hook 2");
    EXPECT_EQ(echo.wait(), 0) << "ended from here";
    calls.expect_undisturbed();
    expect_heard(calls.here, 2, 2);
}

std::string const good_invite =
    "INVITE sip:100@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1:PORT;branch=z9hG4bKBRANCH;rport\r\n"
    "Max-Forwards: 70\r\nFrom: \"A \\\"stranger\\\"\" <sip:x@127.0.0.1>;tag=BRANCH\r\nTo: <sip:100@127.0.0.1>\r\n"
    "Call-ID: BRANCH@127.0.0.1\r\nCSeq: 1 INVITE\r\nContact: <sip:x@127.0.0.1:PORT>\r\n"
    "Content-Type: application/sdp\r\nContent-Length: 118\r\n\r\n"
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 4000 RTP/AVP 8 101\r\n"
    "a=rtpmap:101 telephone-event/8000\r\n";

void replace_all(std::string& text, std::string const& what, std::string const& by) {
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

/// A request that is wrong somewhere: bytes changed, a piece left out, doubled or made long, the end cut off.
std::string spoilt(dice& random, std::string text) {
    for (int changes = random.between(1, 4); changes > 0 && text.size() > 40; changes--) {
        auto const at = static_cast<std::size_t>(random.below(static_cast<int>(text.size())));
        auto const length = std::min(text.size() - at, static_cast<std::size_t>(random.between(1, 40)));
        switch (random.below(6)) {
            case 0: text[at] = static_cast<char>(random.word()); break;
            case 1: text.erase(at, length); break;
            case 2: text.insert(at, text.substr(at, length)); break;
            case 3: text.insert(at, std::string(static_cast<std::size_t>(random.between(100, 3000)), text[at])); break;
            case 4: text.resize(at); break;
            case 5: text.replace(at, 1, std::to_string(random.word())); break;
        }
    }
    return text;
}

/// A message of RFC 4475 from torture/, its lines ended as SIP wants it.
std::string torture(std::string const& name, int port) {
    std::ifstream in(TORTURE "/" + name, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    replace_all(text, "\n", "\r\n");
    replace_all(text, "PORT", std::to_string(port));
    return text;
}

/// The status code that comes back; empty: nothing before the answer to a request that is good.
std::string answer_to(std::string const& message, udp_peer const& stranger, ip_port const& door) {
    stranger.send(door, message);
    std::string const probe = "probe" + std::to_string(bound_port(stranger.fd()));
    stranger.send(door, "OPTIONS sip:100@here SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1;rport;branch=z9hG4bK" + probe +
                            "\r\nFrom: <sip:a@b>;tag=1\r\nTo: <sip:100@here>\r\nCall-ID: " + probe +
                            "\r\nCSeq: 1 OPTIONS\r\nMax-Forwards: 70\r\nContent-Length: 0\r\n\r\n");
    std::string const reply = next_datagram(stranger);
    EXPECT_FALSE(reply.empty()) << message;
    return reply.empty() || header(reply, "Call-ID") == probe ? "" : reply.substr(8, 3);
}

TEST(phone_storm, answers_torture_messages) {
    static constexpr struct {
        char const* name;
        char const* answer;
    } messages[] = {
        {"wsinv", "481"},      {"intmeth", "501"},  {"esc01", "404"},     {"escnull", "501"}, {"esc02", "501"},
        {"lwsdisp", "200"},    {"longreq", "486"},  {"dblreq", "501"},    {"semiuri", "200"}, {"transports", "200"},
        {"mpart", "501"},      {"unreason", ""},    {"noreason", ""},     {"badinv01", ""},   {"clerr", "400"},
        {"ncl", "400"},        {"scalar02", "501"}, {"scalarlg", ""},     {"quotbal", "486"}, {"ltgtruri", "416"},
        {"lwsruri", ""},       {"lwsstart", ""},    {"trws", ""},         {"escruri", "486"}, {"baddate", "486"},
        {"regbadct", "501"},   {"badaspec", "200"}, {"baddn", "200"},     {"badvers", ""},    {"mismatch01", "400"},
        {"mismatch02", "400"}, {"bigcode", ""},     {"badbranch", "200"}, {"insuf", "400"},   {"unkscm", "416"},
        {"novelsc", "416"},    {"unksm2", ""},      {"bext01", "420"},    {"invut", "415"},   {"regaut01", "501"},
        {"multi01", "400"},    {"mcl01", "400"},    {"bcast", ""},        {"zeromf", "200"},  {"cparam01", "501"},
        {"cparam02", "501"},   {"regescrt", "501"}, {"sdp01", "486"},     {"inv2543", ""},
    };
    established calls("[calls]\nwaiting = false\n");  // a good INVITE finds the line busy
    for (auto const& one : messages) {
        udp_peer const stranger;
        EXPECT_EQ(answer_to(torture(one.name, bound_port(stranger.fd())), stranger,
                            ip_port(str(127, 0, 0, 1), calls.here.sip_port)),
                  one.answer)
            << one.name;
    }
    calls.here.both_speak();
    calls.expect_undisturbed();
    calls.here.phone.end(SIGKILL);  // it would wait 32 s for ACKs of what it refused (RFC 3261 section 17.2.1)
}

TEST(phone_storm, survives_messages_that_are_wrong) {
    established calls;
    udp_peer const stranger;
    ip_port const door(str(127, 0, 0, 1), calls.here.sip_port);
    int number = 0;
    auto const numbered = [&](std::string message) {
        replace_all(message, "BRANCH", "storm" + std::to_string(number++));
        replace_all(message, "PORT", std::to_string(bound_port(stranger.fd())));
        return message;
    };
    seed_range{1, 1}.roll([&](dice& random) {
        for (int i = 0; i < 2000; i++)
            stranger.send(door, spoilt(random, numbered(good_invite)));
    });
    std::string const head = good_invite.substr(0, good_invite.find("Content-Type"));
    bool answered = false;
    for (int tries = 0; tries < 50 && !answered; tries++) {  // datagrams that no socket had room for are lost
        std::string options = numbered(head + "Content-Length: 0\r\n\r\n");
        replace_all(options, "INVITE", "OPTIONS");
        stranger.send(door, options);
        for (int replies = 0; replies < 200 && !answered; replies++) {  // refusals come again until there is an ACK
            std::string const reply = next_datagram(stranger);
            answered = reply.starts_with("SIP/2.0 200") && header(reply, "Call-ID") == header(options, "Call-ID");
            if (reply.empty())
                break;
        }
    }
    EXPECT_TRUE(answered) << "SIP goes on";
    calls.here.both_speak();
    calls.expect_undisturbed();
    calls.here.phone.end(SIGKILL);  // it would wait 32 s for ACKs of what it refused (RFC 3261 section 17.2.1)
}

}  // namespace
