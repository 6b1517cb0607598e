#include <gtest/gtest.h>
#include "phone/libre.h"

#include <sstream>

#include "phone/session_description.h"

using namespace fxsphone;

namespace {

constexpr char const* head = "v=0\r\no=- 1 1 IN IP4 192.0.2.7\r\ns=-\r\nc=IN IP4 192.0.2.7\r\nt=0 0\r\n";

std::string text_of(std::optional<media_plan> const& plan) {
    if (!plan)
        return "none";
    std::ostringstream out;
    out << "send " << plan->send.codec << '/' << plan->send.payload_type << " map";
    for (auto const& one : plan->map)
        out << ' ' << one.codec << '/' << one.payload_type;
    out << " events " << plan->event_pt.value_or(-1) << " ptime " << plan->ptime_ms;
    out << " rtp " << (plan->rtp ? plan->rtp->port : 0) << " rtcp " << (plan->rtcp ? plan->rtcp->port : 0);
    return out.str();
}

mbuf* buffer(std::string const& text) {
    mbuf* const made = mbuf_alloc(text.size());
    mbuf_write_str(made, text.c_str());
    mbuf_set_pos(made, 0);
    return made;
}

/// What an answer says of the audio stream: its line and attributes.
std::string lines_of(mbuf* text) {
    std::string const all(reinterpret_cast<char*>(text->buf), text->end);
    mem_deref(text);
    return all.substr(all.find("m=audio"));
}

struct offered {
    char const* name;
    std::vector<std::string> codecs;
    std::string audio;  ///< of the offer
    std::string plan;
    std::string first_line;  ///< of our answer; empty: refused
};

std::vector<offered> const offers = {
    {"static numbers without rtpmap",
     {"pcma", "pcmu"},
     "m=audio 4000 RTP/AVP 0 8\r\n",
     "send 1/0 map 1/0 2/8 events -1 ptime 20 rtp 4000 rtcp 4001",
     "m=audio 5000 RTP/AVP 0 8"},
    {"only what both have",
     {"g722", "pcma"},
     "m=audio 4000 RTP/AVP 3 8\r\n",
     "send 2/8 map 2/8 events -1 ptime 20 rtp 4000 rtcp 4001",
     "m=audio 5000 RTP/AVP 8"},
    {"dynamic numbers are the offer's",
     {"g726", "pcmu"},
     "m=audio 4000 RTP/AVP 119 0 97\r\na=rtpmap:119 G726-32/8000\r\na=rtpmap:97 telephone-event/8000\r\na=ptime:30\r\n",
     "send 6/119 map 6/119 1/0 events 97 ptime 30 rtp 4000 rtcp 4001",
     "m=audio 5000 RTP/AVP 119 0 97"},
    {"RTCP elsewhere (RFC 3605)",
     {"pcma"},
     "m=audio 4000 RTP/AVP 8\r\na=rtcp:4711\r\n",
     "send 2/8 map 2/8 events -1 ptime 20 rtp 4000 rtcp 4711",
     "m=audio 5000 RTP/AVP 8"},
    {"on hold",
     {"pcma"},
     "m=audio 4000 RTP/AVP 8\r\na=sendonly\r\n",
     "send 2/8 map 2/8 events -1 ptime 20 rtp 0 rtcp 4001",
     "m=audio 5000 RTP/AVP 8"},
    {"an absurd packet time",
     {"pcma"},
     "m=audio 4000 RTP/AVP 8\r\na=ptime:7\r\n",
     "send 2/8 map 2/8 events -1 ptime 20 rtp 4000 rtcp 4001",
     "m=audio 5000 RTP/AVP 8"},
    {"events without * and # are of no use",
     {"pcma"},
     "m=audio 4000 RTP/AVP 8 97\r\na=rtpmap:97 telephone-event/8000\r\na=fmtp:97 0-9,12-15\r\n",
     "send 2/8 map 2/8 events -1 ptime 20 rtp 4000 rtcp 4001",
     "m=audio 5000 RTP/AVP 8 97"},
    {"nothing in common", {"pcma"}, "m=audio 4000 RTP/AVP 111\r\na=rtpmap:111 opus/48000/2\r\n", "none", ""},
    {"events alone are no codec",
     {"pcma"},
     "m=audio 4000 RTP/AVP 97\r\na=rtpmap:97 telephone-event/8000\r\n",
     "none",
     ""},
    {"stream refused", {"pcma"}, "m=audio 0 RTP/AVP 8\r\n", "none", ""},
};

TEST(phone_media, answers_offers) {
    for (offered const& one : offers) {
        SCOPED_TRACE(one.name);
        session_description ours("192.0.2.1", one.codecs, 20);
        ours.set_port(5000);
        mbuf* const offer = buffer(head + one.audio);
        EXPECT_EQ(ours.read_offer(offer), !one.first_line.empty());
        mem_deref(offer);
        EXPECT_EQ(text_of(ours.plan()), one.plan);
        if (!one.first_line.empty()) {
            std::string const answer = lines_of(ours.answer());
            EXPECT_EQ(answer.substr(0, answer.find('\r')), one.first_line);
        }
    }
}

TEST(phone_media, offers_and_takes_the_answer_of_its_like) {
    session_description caller("192.0.2.1", {"g729", "pcma", "g726"}, 20);
    session_description called("192.0.2.2", {"g726", "pcma"}, 20);
    caller.set_port(5000);
    called.set_port(6000);
    mbuf* const offer = caller.offer();
    ASSERT_TRUE(called.read_offer(offer));
    mbuf* const answer = called.answer();
    ASSERT_TRUE(caller.read_answer(answer));
    EXPECT_EQ(text_of(caller.plan()), "send 2/8 map 2/8 6/102 events 101 ptime 20 rtp 6000 rtcp 6001");
    EXPECT_EQ(text_of(called.plan()), "send 2/8 map 2/8 6/102 events 101 ptime 20 rtp 5000 rtcp 5001");
    mem_deref(offer);
    mem_deref(answer);
    EXPECT_NE(lines_of(caller.offer(true)).find("a=sendonly"), std::string::npos);
}

TEST(phone_media, names_the_report_blocks_that_both_want) {
    struct blocks {
        std::string offered, answered, sent;
    };
    for (blocks const& one : std::vector<blocks>{
             {"", "", ""},
             {"a=rtcp-xr:voip-metrics\r\n", "a=rtcp-xr:pkt-loss-rle rcvr-rtt=all voip-metrics\r\n", "voip-metrics"},
             {"a=rtcp-xr:rcvr-rtt=all:10 pkt-loss-rle=100 stat-summary=loss,dup x\r\n",
              "a=rtcp-xr:pkt-loss-rle rcvr-rtt=all voip-metrics\r\n", "rcvr-rtt pkt-loss-rle=100"}}) {
        session_description ours("192.0.2.1", {"pcma"}, 20);
        ours.set_port(5000);
        ours.set_xr({"voip-metrics", "rcvr-rtt", "pkt-loss-rle"});
        mbuf* const offer = buffer(std::string(head) + "m=audio 4000 RTP/AVP 8\r\n" + one.offered);
        ASSERT_TRUE(ours.read_offer(offer));
        mem_deref(offer);
        EXPECT_EQ(ours.plan()->xr, one.sent);
        std::string const answer = lines_of(ours.answer());
        EXPECT_EQ(answer.find("rtcp-xr") == answer.npos, one.answered.empty());
        EXPECT_NE(answer.find(one.answered), answer.npos) << answer;
    }
}

struct protected_offer {
    char const* name;
    srtp_use use;
    std::string profile, crypto;  ///< of the offer
    std::string answer;           ///< begin of our crypto attribute, "plain", or "refused"
    int tag_bytes = 0;
};

// The example of RFC 4568 section 6.1.
std::string const key_text = "d0RmdmcmVCspeEc3QGZiNWpVLFJhQX1cfHAwJSoj";
std::string const key_bytes = "wDfvg&T+)xG7@fb5jU,RaA}\\|p0%*#";

std::vector<protected_offer> const protected_offers = {
    {"the usual", srtp_use::required, "RTP/SAVP", "7 AES_CM_128_HMAC_SHA1_80 inline:" + key_text + "|2^31",
     "a=crypto:7 AES_CM_128_HMAC_SHA1_80 inline:", 10},
    {"short tag", srtp_use::optional, "RTP/SAVP", "1 AES_CM_128_HMAC_SHA1_32 inline:" + key_text + " WSH=128",
     "a=crypto:1 AES_CM_128_HMAC_SHA1_32 inline:", 4},
    {"first one unknown", srtp_use::optional, "RTP/AVP",
     "1 AEAD_AES_128_GCM inline:x\r\na=crypto:2 AES_CM_128_HMAC_SHA1_80 inline:" + key_text,
     "a=crypto:2 AES_CM_128_HMAC_SHA1_80 inline:", 10},
    {"key with an identifier", srtp_use::optional, "RTP/SAVP",
     "1 AES_CM_128_HMAC_SHA1_80 inline:" + key_text + "|2^20|1:4", "refused"},
    {"short key", srtp_use::required, "RTP/SAVP", "1 AES_CM_128_HMAC_SHA1_80 inline:d0Rm", "refused"},
    {"not encrypted", srtp_use::optional, "RTP/SAVP",
     "1 AES_CM_128_HMAC_SHA1_80 inline:" + key_text + " UNENCRYPTED_SRTP", "refused"},
    {"nothing, where it is required", srtp_use::required, "RTP/AVP", "", "refused"},
    {"nothing, where it is optional", srtp_use::optional, "RTP/AVP", "", "plain"},
    {"keys for one who wants none", srtp_use::off, "RTP/AVP", "1 AES_CM_128_HMAC_SHA1_80 inline:" + key_text, "plain"},
    {"keys are needed for one who has none", srtp_use::off, "RTP/SAVP", "1 AES_CM_128_HMAC_SHA1_80 inline:" + key_text,
     "refused"},
};

TEST(phone_media, answers_offers_with_keys) {
    for (protected_offer const& one : protected_offers) {
        SCOPED_TRACE(one.name);
        session_description ours("192.0.2.1", {"pcma"}, 20, one.use);
        ours.set_port(5000);
        std::string const crypto = one.crypto.empty() ? "" : "a=crypto:" + one.crypto + "\r\n";
        mbuf* const offer = buffer(head + ("m=audio 4000 " + one.profile + " 8\r\n") + crypto);
        EXPECT_EQ(ours.read_offer(offer), one.answer != "refused");
        mem_deref(offer);
        if (one.answer == "refused")
            continue;
        std::string const answer = lines_of(ours.answer());
        EXPECT_TRUE(answer.starts_with("m=audio 5000 " + one.profile + " 8\r\n")) << answer;
        EXPECT_EQ(answer.find("a=crypto") == answer.npos, one.answer == "plain") << answer;
        std::optional<srtp_plan> const keys = ours.plan()->srtp;
        EXPECT_EQ(keys.has_value(), one.answer != "plain");
        if (!keys)
            continue;
        EXPECT_NE(answer.find(one.answer), answer.npos) << answer;
        EXPECT_EQ(keys->tag_bytes, one.tag_bytes);
        EXPECT_EQ(std::string(keys->receive.begin(), keys->receive.end()), key_bytes);
    }
}

TEST(phone_media, agrees_on_keys_and_keeps_them) {
    session_description caller("192.0.2.1", {"pcma"}, 20, srtp_use::optional);
    session_description called("192.0.2.2", {"pcma"}, 20, srtp_use::required);
    std::optional<srtp_plan> before;
    for (int round = 0; round < 2; round++) {
        mbuf* const offer = caller.offer(round == 1);
        ASSERT_TRUE(called.read_offer(offer));
        mbuf* const answer = called.answer();
        ASSERT_TRUE(caller.read_answer(answer));
        auto const ours = caller.plan()->srtp, theirs = called.plan()->srtp;
        ASSERT_TRUE(ours && theirs);
        EXPECT_EQ(ours->send, theirs->receive);
        EXPECT_EQ(ours->receive, theirs->send);
        EXPECT_NE(ours->send, ours->receive);
        EXPECT_EQ(before.value_or(*ours), *ours);
        before = ours;
        mem_deref(offer);
        mem_deref(answer);
    }
    EXPECT_EQ(without_keys("a=crypto:1 X inline:abc|2^31\r\na=crypto:2 Y inline:d\r\n"),
              "a=crypto:1 X inline:...\r\na=crypto:2 Y inline:...\r\n");
}

}  // namespace
