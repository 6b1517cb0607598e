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

}  // namespace
