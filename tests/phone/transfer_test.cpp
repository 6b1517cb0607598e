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
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    expect_heard(here, 1, 2);
    expect_heard(here, 2, 1);
}

TEST(phone_transfer, connects_the_two_others_when_the_receiver_is_replaced) {
    device here;
    here.driver_says("off-hook 0");
    here.call(0, 1);
    here.flash(0);
    here.call(0, 2);
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
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    expect_heard(here, 0, 1);
    expect_heard(here, 1, 0);
}

// An independent agent. Scenarios of SIPp: a message with what is the same in all of a call left to macros here.
std::string const via = "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\nMax-Forwards: 70\n";
std::string const caller = "From: <sip:out@[local_ip]:[local_port]>;tag=o[call_number]\n";
std::string const called = "To: <sip:[service]@[remote_ip]:[remote_port]>";
std::string const rest = "Call-ID: [call_id]\nContact: <sip:out@[local_ip]:[local_port]>\n";

std::string send(std::string const& message) {
    return "<send retrans=\"500\"><![CDATA[\n\n" + message + "\n]]></send>\n";
}
std::string ok_to(std::string const& request) {
    return "<recv request=\"" + request +
           "\"></recv>\n<send><![CDATA[\n\nSIP/2.0 200 OK\n[last_Via:]\n[last_From:]\n"
           "[last_To:]\n[last_Call-ID:]\n[last_CSeq:]\nContent-Length: 0\n\n]]></send>\n";
}
std::string in_call(std::string const& method, int number, std::string const& headers, std::string const& body = {}) {
    return send(method + " sip:[service]@[remote_ip]:[remote_port] SIP/2.0\n" + via + caller + called +
                "[peer_tag_param]\n" + rest + "CSeq: " + std::to_string(number) + " " + method + "\n" + headers +
                "Content-Length: [len]\n\n" + body);
}

TEST(phone_transfer, follows_an_independent_agent) {
    device here;
    std::string const sdp =
        "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\nm=audio [media_port] "
        "RTP/AVP 8\n";
    std::string const ack = "ACK sip:[service]@[remote_ip]:[remote_port] SIP/2.0\n" + via + caller + called +
                            "[peer_tag_param]\n" + rest + "CSeq: 1 ACK\nContent-Length: 0\n";
    std::ofstream(here.folder + "/refer.xml")
        << "<?xml version=\"1.0\"?>\n<scenario name=\"refer\">\n"
        << send("INVITE sip:[service]@[remote_ip]:[remote_port] SIP/2.0\n" + via + caller + called + "\n" + rest +
                "CSeq: 1 INVITE\nContent-Type: application/sdp\nContent-Length: [len]\n\n" + sdp)
        << "<recv response=\"180\"></recv>\n<recv response=\"200\"></recv>\n<send><![CDATA[\n\n"
        << ack << "\n]]></send>\n"
        << in_call("REFER", 2, "Refer-To: <sip:102@127.0.0.1:" + std::to_string(here.sip_port) + ">\n")
        << "<recv response=\"202\"></recv>\n"
        << ok_to("NOTIFY") << ok_to("NOTIFY") << ok_to("BYE") << "</scenario>\n";
    auto arguments = sipp("uac", free_port(), {"-s", "101", "127.0.0.1:" + std::to_string(here.sip_port)});
    arguments[1] = "-sf";
    arguments[2] = here.folder + "/refer.xml";
    child agent(arguments);
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.lines.wait_for_text("line 2  ring device: ring")) << here.phone.err;
    here.driver_says("off-hook 2");
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err << here.phone.err;
    here.speak({"1"});
    here.driver_says("on-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":2,\"direction\":\"in\""));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    expect_heard(here, 1, 2);
}

}  // namespace
