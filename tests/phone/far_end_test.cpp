#include "tests/phone/device.h"
#include "tests/phone/far_agent.h"
#include "tests/support/rtp_builder.h"

/// What a far end may do in a call, message by message.
namespace {

/// A device whose key 0 calls a far agent.
struct scene {
    far_agent far;
    device here;

    explicit scene(std::string const& tables = {}) : scene(free_port(), tables) {}

    std::string called() {
        here.driver_says("off-hook 0");
        here.dial(0, "0");
        return far.receive_call();
    }
    /// Answers the INVITE of called() and waits for the ACK.
    void answer(std::string const& invite, std::string const& audio, udp_peer const* where = nullptr) {
        far.answer(invite, "200 OK", audio, "", where);
        ASSERT_FALSE(far.receive("ACK").empty());
    }
    void far_hangs_up(int number) {
        far.request("BYE", number);
        EXPECT_FALSE(far.receive("SIP/2.0 200").empty());
        EXPECT_TRUE(here.phone.wait_for_text("\"ended_by\":\"far\""));
    }

private:
    scene(std::uint16_t port, std::string const& tables)
        : far(port),
          here("{ keys = \"0\", call = \"sip:far@127.0.0.1:" + std::to_string(far.port()) + "\" }", tables, "", port) {}
};

rtp_packet next_rtp(udp_peer const& at) {
    std::string const datagram = next_datagram(at);
    return datagram.size() < 12 ? rtp_packet{.payload_type = -1} : rtp_packet::parse(datagram);
}

/// A packet of A-law to where a description wants media.
void speak(udp_peer const& from, std::string const& description, std::uint16_t number) {
    from.send(ip_port(str(127, 0, 0, 1), std::stoi(between(description, "\r\nm=audio ", " "))),
              rtp_packet{.payload_type = 8,
                         .sequence = number,
                         .timestamp = number * 160u,
                         .ssrc = 7,
                         .payload = std::string(160, '\x55')}
                  .build());
}

TEST(phone_far_end, changes_codec_and_address_and_holds) {
    scene one;
    udp_peer const elsewhere;
    one.answer(one.called(), "RTP/AVP 8");
    EXPECT_EQ(next_rtp(one.far.media).payload_type, 8);

    one.far.request("INVITE", 10, "RTP/AVP 0", "Session-Expires: 1800;refresher=uac\r\nSupported: timer\r\n",
                    &elsewhere);
    EXPECT_NE(one.far.receive("SIP/2.0 200").find(" RTP/AVP 0\r\n"), std::string::npos) << "a session refresh, too";
    one.far.request("ACK", 10);
    EXPECT_EQ(next_rtp(elsewhere).payload_type, 0);

    one.far.request("UPDATE", 11, "RTP/AVP 8");
    std::string const updated = one.far.receive("SIP/2.0 200");
    EXPECT_NE(updated.find(" RTP/AVP 8\r\n"), std::string::npos) << updated;
    EXPECT_EQ(header(updated, "Session-Expires"), "1800;refresher=uas") << updated;
    EXPECT_EQ(next_rtp(one.far.media).payload_type, 8);

    one.far.request("INVITE", 12, "RTP/AVP 111\r\na=rtpmap:111 opus/48000/2");
    EXPECT_FALSE(one.far.receive("SIP/2.0 488").empty());
    one.far.request("ACK", 12);
    one.far.request("INVITE", 13, "RTP/AVP 8\r\na=sendonly");
    EXPECT_NE(one.far.receive("SIP/2.0 200").find("a=recvonly"), std::string::npos);
    one.far.request("ACK", 13);
    one.far.request("INVITE", 14, "RTP/AVP 8");
    EXPECT_NE(one.far.receive("SIP/2.0 200").find("a=sendrecv"), std::string::npos);
    one.far.request("ACK", 14);
    one.far_hangs_up(15);
}

TEST(phone_far_end, offers_at_the_same_moment) {
    scene one;
    one.answer(one.called(), "RTP/AVP 8");
    one.here.flash(0);
    std::string const ours = one.far.receive("INVITE");
    EXPECT_NE(ours.find("a=sendonly"), std::string::npos) << ours;
    one.far.request("INVITE", 10, "RTP/AVP 8");
    EXPECT_FALSE(one.far.receive("SIP/2.0 491").empty()) << "RFC 3261 section 14.2";
    one.far.request("ACK", 10);
    one.far.request("UPDATE", 11, "RTP/AVP 8");
    EXPECT_FALSE(one.far.receive("SIP/2.0 491").empty()) << "RFC 3311 section 5.2";
    one.far.answer(ours, "491 Request Pending");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    std::string const again = one.far.receive("INVITE");
    EXPECT_NE(again.find("a=sendonly"), std::string::npos) << again;
    one.far.answer(again, "200 OK", "RTP/AVP 8\r\na=recvonly");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    one.far.request("UPDATE", 12, "RTP/AVP 8");
    EXPECT_FALSE(one.far.receive("SIP/2.0 200").empty());
    one.far_hangs_up(13);
}

std::string const two_seconds = "Session-Expires: 2;refresher=";

TEST(phone_far_end, is_asked_whether_it_is_still_there) {
    scene one;
    std::string const first = one.called();
    EXPECT_EQ(header(first, "Session-Expires"), "1800");
    one.far.answer(first, "422 Session Interval Too Small", "", "Min-SE: 3600\r\n");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    std::string const second = one.far.receive_call();
    EXPECT_EQ(header(second, "Session-Expires"), "3600");
    one.far.answer(second, "200 OK", "RTP/AVP 8", two_seconds + "uac\r\nAllow: INVITE, UPDATE\r\n");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    std::string const update = one.far.receive("UPDATE");
    EXPECT_NE(header(update, "Session-Expires").find(";refresher=uac"), std::string::npos) << update;
    one.far.answer(update, "501 Not Implemented");
    std::string const invite = one.far.receive("INVITE");
    EXPECT_NE(invite.find("m=audio "), std::string::npos) << "instead: " << invite;
    one.far.answer(invite, "200 OK", "RTP/AVP 8", "Allow: INVITE, UPDATE\r\n");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    one.far.answer(one.far.receive("INVITE"), "481 Call Does Not Exist");
    EXPECT_TRUE(one.here.phone.wait_for_text("\"sip_code\":481"));
    one.here.phone.end(SIGKILL);  // nobody answers its BYE
}

TEST(phone_far_end, is_taken_for_gone_when_it_does_not_refresh) {
    scene one("[calls]\nsession_expires_s = 90\n");
    one.far.answer(one.called(), "200 OK", "RTP/AVP 8", two_seconds + "uas\r\n");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    EXPECT_FALSE(one.far.receive("BYE").empty());
    EXPECT_TRUE(one.here.phone.wait_for_text("\"ended_by\":\"network\""));
    far_agent other(one.here.sip_port);
    other.call("101", "RTP/AVP 8", "Supported: timer\r\nSession-Expires: 60\r\n");
    EXPECT_EQ(header(other.receive("SIP/2.0 422"), "Min-SE"), "90");
    other.request("ACK", 1);
    other.request("INVITE", 2, "RTP/AVP 8", "Require: timer\r\nSupported: timer\r\nSession-Expires: 90\r\n");
    EXPECT_FALSE(other.receive("SIP/2.0 180").empty());
    one.here.driver_says("off-hook 1");
    EXPECT_EQ(header(other.answered(), "Session-Expires"), "90;refresher=uac");
    one.here.phone.end(SIGKILL);
}

TEST(phone_far_end, is_replaced_while_it_is_held) {
    scene one;
    one.answer(one.called(), "RTP/AVP 8");
    one.here.flash(0);
    one.far.answer(one.far.receive("INVITE"), "200 OK", "RTP/AVP 8\r\na=recvonly");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    far_agent other(one.here.sip_port);
    other.call("100", "RTP/AVP 8", one.far.replaces());
    EXPECT_NE(other.answered().find("a=sendonly"), std::string::npos) << "it is held, too";
    other.request("ACK", 1);
    one.far.answer(one.far.receive("BYE"), "200 OK");
    other.request("INVITE", 2, "RTP/AVP 8");
    EXPECT_NE(other.receive("SIP/2.0 200").find("a=sendonly"), std::string::npos);
    other.request("ACK", 2);
    one.here.flash(0);
    EXPECT_NE(other.receive("INVITE").find("a=sendrecv"), std::string::npos) << "and resumed";
    one.here.phone.end(SIGKILL);
}

TEST(phone_far_end, calls_without_an_offer) {
    scene one("[ring]\ncountry = \"gb\"\n");
    one.far.call("101", "", "Require: 100rel\r\n");
    EXPECT_EQ(header(one.far.receive("SIP/2.0 420"), "Unsupported"), "100rel");
    one.far.request("ACK", 1);
    one.far.request("INVITE", 2, "", "Alert-Info: <http://127.0.0.1/Bellcore-dr2>\r\n");
    EXPECT_FALSE(one.far.receive("SIP/2.0 180").empty());
    EXPECT_TRUE(one.here.lines.wait_for_text("line 1  ring device: cadence 800 400 800 4000"));
    one.here.driver_says("off-hook 1");
    std::string const offer = one.far.answered();
    ASSERT_NE(offer.find("m=audio "), std::string::npos);
    udp_peer const reports;
    one.far.request("ACK", 2,
                    "RTP/AVP 8\r\na=rtcp:" + std::to_string(bound_port(reports.fd())) + "\r\na=rtcp-xr:rcvr-rtt=all");
    EXPECT_EQ(next_rtp(one.far.media).payload_type, 8);
    bool extended = false;  // RFC 3611 section 2, once there is something to report on
    for (std::uint16_t tries = 0; tries < 4 && !extended; tries++) {
        speak(one.far.media, offer, tries);
        extended = next_datagram(reports).find("\x80\xCF") != std::string::npos;
    }
    EXPECT_TRUE(extended);
    one.far_hangs_up(3);
}

TEST(phone_far_end, sends_the_caller_elsewhere) {
    scene one;
    far_agent other(one.here.sip_port);
    one.far.answer(one.called(), "302 Moved Temporarily", "",
                   "Contact: <sip:moved@127.0.0.1:" + std::to_string(other.port()) + ">\r\n");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    std::string const invite = other.receive_call();
    EXPECT_TRUE(invite.starts_with("INVITE sip:moved@")) << invite;
    other.answer(invite, "486 Busy Here");
    EXPECT_TRUE(one.here.phone.wait_for_text("\"sip_code\":486"));
}

TEST(phone_far_end, is_sent_to_where_it_sends_from_when_its_address_is_private) {
    scene one;
    udp_peer const said;  // behind its translator nobody hears this
    std::string const invite = one.called();
    one.answer(invite, "RTP/AVP 8", &said);
    EXPECT_EQ(next_rtp(said).payload_type, 8);
    speak(one.far.media, invite, 0);
    EXPECT_EQ(next_rtp(one.far.media).payload_type, 8);
    one.far_hangs_up(10);
}

/// Does as a STUN server (RFC 8489) behind a translator that has given the sender this port of 192.0.2.7. Returns the
/// sender's own.
int answer_stun(udp_peer const& server, int outside_port) {
    std::string request(64, 0);
    sockaddr_in from{};
    socklen_t length = sizeof from;
    if (!shows(server.fd(), POLLIN) ||
        recvfrom(server.fd(), request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&from), &length) != 20)
        return 0;
    int const hidden = outside_port ^ 0x2112;
    server.send(ip_port(str(127, 0, 0, 1), ntohs(from.sin_port)),
                from_hex("01 01 00 0C") + request.substr(4, 16) + from_hex("00 20 00 08 00 01") +
                    static_cast<char>(hidden >> 8) + static_cast<char>(hidden) + from_hex("E1 12 A6 45"));
    return ntohs(from.sin_port);
}

TEST(phone_far_end, is_told_how_our_ports_look_from_outside) {
    udp_peer const server;
    scene one("[network]\nstun = \"127.0.0.1:" + std::to_string(bound_port(server.fd())) + "\"\n");
    one.here.driver_says("off-hook 0");
    int const rtp_port = answer_stun(server, 40000);
    EXPECT_EQ(answer_stun(server, 41234), rtp_port + 1) << "asked from the media ports themselves";
    one.here.dial(0, "0");
    std::string const mapped = one.far.receive_call();
    EXPECT_NE(mapped.find("\r\nc=IN IP4 192.0.2.7\r\n"), std::string::npos) << mapped;
    EXPECT_NE(mapped.find("\r\nm=audio 40000 "), std::string::npos);
    EXPECT_NE(mapped.find("\r\na=rtcp:41234"), std::string::npos);
    one.far.answer(mapped, "486 Busy Here");
    EXPECT_FALSE(one.far.receive("ACK").empty());
    one.here.driver_says("off-hook 1");
    one.here.dial(1, "0");
    EXPECT_NE(one.far.receive_call().find("\r\nc=IN IP4 127.0.0.1\r\n"), std::string::npos) << "nobody has answered";
    one.here.phone.end(SIGKILL);
}

}  // namespace
