#include "phone/session_description.h"

#include "phone/libre.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "lib/protocol.h"

namespace fxsphone {

namespace {

/// How SDP names a codec (RFC 3551 table 4, RFC 3555).
struct sdp_codec {
    char const* name;  ///< as protocol::codec_formats has it
    char const* encoding;
    char const* parameters;
};

constexpr sdp_codec sdp_codecs[] = {
    {"pcmu", "PCMU", nullptr},    {"pcma", "PCMA", nullptr}, {"g729", "G729", "annexb=no"},
    {"gsm", "GSM", nullptr},      {"g722", "G722", nullptr},  // its clock is 8000 for RTP, RFC 3551 section 4.5.2
    {"g726", "G726-32", nullptr},
};

constexpr char const* events = "telephone-event";
constexpr std::uint32_t clock_hz = 8000;

/// How SDP names an extended report block (RFC 3611 section 5.1).
struct xr_block {
    char const* name;        ///< as the media command has it
    char const* parameters;  ///< of our attribute
};

constexpr xr_block xr_formats[] = {{"pkt-loss-rle", ""},
                                   {"pkt-dup-rle", ""},
                                   {"pkt-rcpt-times", ""},
                                   {"rcvr-rtt", "=all"},
                                   {"stat-summary", "=loss,dup,jitt"},
                                   {"voip-metrics", ""}};

constexpr char const* xr_attribute = "rtcp-xr";

/// Whether a list like "0-15,32" (RFC 4733 section 2.4.1) has the twelve keys; no list means 0 to 15.
bool takes_keys(char const* list) {
    unsigned taken = list == nullptr || *list == '\0' ? 0xFFF : 0;
    std::istringstream in(list == nullptr ? "" : list);
    for (std::string part; std::getline(in, part, ',');) {
        int const first = std::atoi(part.c_str());
        std::size_t const dash = part.find('-');
        int const last = dash == part.npos ? first : std::atoi(part.c_str() + dash + 1);
        for (int key = std::max(first, 0); key <= std::min(last, 11); key++)
            taken |= 1u << key;
    }
    return taken == 0xFFF;
}

sdp_codec const* by_encoding(char const* encoding) {
    auto const found =
        std::ranges::find_if(sdp_codecs, [&](sdp_codec const& one) { return strcasecmp(one.encoding, encoding) == 0; });
    return found == std::end(sdp_codecs) ? nullptr : found;
}

protocol::codec_format const& by_name(std::string_view name) {
    return *std::ranges::find_if(protocol::codec_formats, [&](auto const& one) { return name == one.name; });
}

/// Static payload types need no rtpmap and may come without a name. nullptr for what the process cannot code.
sdp_codec const* codec_of(sdp_format const& format) {
    if (format.name != nullptr)
        return by_encoding(format.name);
    auto const found = std::ranges::find_if(
        sdp_codecs, [&](sdp_codec const& one) { return by_name(one.name).payload_type == format.pt; });
    return found == std::end(sdp_codecs) ? nullptr : found;
}

std::optional<fxsmedia::codec_choice> choice(sdp_format const& format) {
    sdp_codec const* const codec = codec_of(format);
    if (codec == nullptr)
        return std::nullopt;
    return fxsmedia::codec_choice{by_name(codec->name).number, format.pt};
}

sdp_format const* first_codec(sdp_media const* audio) {
    for (le const* at = list_head(sdp_media_format_lst(audio, false)); at != nullptr; at = at->next) {
        auto const* const format = static_cast<sdp_format const*>(at->data);
        if (format->sup && choice(*format))
            return format;
    }
    return nullptr;
}

std::optional<fxsmedia::endpoint> endpoint_of(sa const& address) {
    char ip[64];
    if (!sa_isset(&address, SA_ALL) || sa_is_any(&address) || sa_ntop(&address, ip, sizeof ip) != 0)
        return std::nullopt;
    return fxsmedia::endpoint::from_text(ip, sa_port(&address));
}

}  // namespace

session_description::session_description(std::string const& local_ip, std::vector<std::string> const& codecs,
                                         int ptime_ms, srtp_use protection)
    : security(protection), local_ptime_ms(ptime_ms) {
    sa address;
    if (sa_set_str(&address, local_ip.c_str(), 0) != 0 || sdp_session_alloc(&session, &address) != 0)
        return;
    family = sa_af(&address);
    constexpr std::uint16_t discard = 9;  // RFC 863; 0 would refuse the stream
    if (sdp_media_add(&audio, session, sdp_media_audio, discard, security.profile()) != 0)
        return;
    sdp_media_set_alt_protos(audio, 1, security.other_profile());
    sdp_media_set_lattr(audio, true, "ptime", "%d", ptime_ms);
    auto const add = [&](int number, char const* encoding, char const* parameters) {
        sdp_format_add(nullptr, audio, false, std::to_string(number).c_str(), encoding, clock_hz, 1, nullptr, nullptr,
                       nullptr, false, parameters == nullptr ? nullptr : "%s", parameters);
    };
    for (std::string const& name : codecs) {
        auto const codec = std::ranges::find_if(sdp_codecs, [&](sdp_codec const& one) { return one.name == name; });
        if (codec != std::end(sdp_codecs))
            add(by_name(name).payload_type, codec->encoding, codec->parameters);
    }
    add(by_name(events).payload_type, events, "0-15");
}

session_description::~session_description() {
    mem_deref(session);
}

void session_description::set_port(int rtp_port) {
    sdp_media_set_lport(audio, static_cast<std::uint16_t>(rtp_port));
    sdp_media_set_lport_rtcp(audio, static_cast<std::uint16_t>(rtp_port + 1));
}

void session_description::set_outside(fxsmedia::endpoint const& rtp, std::optional<fxsmedia::endpoint> const& rtcp) {
    char ip[INET6_ADDRSTRLEN] = {};
    inet_ntop(rtp.ip_bytes == 4 ? AF_INET : AF_INET6, rtp.ip, ip, sizeof ip);
    sa address;
    if (sa_set_str(&address, ip, 0) != 0 || sa_af(&address) != family)
        return;
    sdp_session_set_laddr(session, &address);
    sdp_media_set_laddr(audio, &address);
    sdp_media_set_lport(audio, rtp.port);
    sdp_media_set_lport_rtcp(audio, rtcp ? rtcp->port : static_cast<std::uint16_t>(rtp.port + 1));
}

bool session_description::knows(std::string_view codec) {
    return std::ranges::any_of(sdp_codecs, [&](sdp_codec const& one) { return codec == one.name; });
}

mbuf* session_description::offer(bool on_hold) {
    sdp_media_set_ldir(audio, on_hold ? SDP_SENDONLY : SDP_SENDRECV);
    return encode(true);
}

mbuf* session_description::answer(bool on_hold) {
    sdp_media_set_ldir(audio, on_hold ? SDP_SENDONLY : SDP_SENDRECV);  // libre takes away what the offer does not allow
    return encode(false);
}

mbuf* session_description::encode(bool is_offer) {
    mbuf* text = nullptr;
    if (audio == nullptr)
        return nullptr;
    security.write(audio, is_offer);
    write_xr(is_offer);
    return sdp_encode(&text, session, is_offer) == 0 ? text : nullptr;
}

bool session_description::read_offer(mbuf* text) {
    return decode(text, true);
}

bool session_description::read_answer(mbuf* text) {
    return decode(text, false);
}

bool session_description::decode(mbuf* text, bool is_offer) {
    return audio != nullptr && text != nullptr && sdp_decode(session, text, is_offer) == 0 && plan().has_value() &&
           security.read(audio, is_offer);
}

std::optional<media_plan> session_description::plan() const {
    sdp_format const* const chosen = first_codec(audio);
    if (chosen == nullptr || sdp_media_rport(audio) == 0)
        return std::nullopt;
    media_plan made;
    made.send = *choice(*chosen);
    for (le const* at = list_head(sdp_media_format_lst(audio, true)); at != nullptr; at = at->next) {
        auto const* const format = static_cast<sdp_format const*>(at->data);
        auto const received = choice(*format);
        if (received && format->sup)
            made.map.push_back(*received);
    }
    if (sdp_format const* const event = sdp_media_rformat(audio, events); event != nullptr && takes_keys(event->params))
        made.event_pt = event->pt;
    char const* const wanted = sdp_media_rattr(audio, "ptime");
    int const ptime = wanted == nullptr ? 0 : std::atoi(wanted);
    made.ptime_ms = ptime >= 10 && ptime <= 60 && ptime % 10 == 0 ? ptime : local_ptime_ms;
    if ((sdp_media_dir(audio) & SDP_SENDONLY) != 0)
        made.rtp = endpoint_of(*sdp_media_raddr(audio));
    sa rtcp;
    sdp_media_raddr_rtcp(audio, &rtcp);
    made.rtcp = endpoint_of(rtcp);
    made.srtp = security.plan();
    made.xr = wanted_xr();
    return made;
}

bool session_description::knows_xr(std::string_view block) {
    return std::ranges::any_of(xr_formats, [&](xr_block const& one) { return block == one.name; });
}

/// In an answer only when the offer has it (RFC 3611 section 5.2).
void session_description::write_xr(bool is_offer) {
    sdp_media_del_lattr(audio, xr_attribute);
    if (xr_blocks.empty() || (!is_offer && sdp_media_rattr(audio, xr_attribute) == nullptr))
        return;
    std::string words;
    for (xr_block const& one : xr_formats)
        if (std::ranges::count(xr_blocks, one.name) != 0)
            words += (words.empty() ? "" : " ") + std::string(one.name) + one.parameters;
    sdp_media_set_lattr(audio, true, xr_attribute, "%s", words.c_str());
}

/// What both sides have named; the block sizes that the far end wants go with it.
std::string session_description::wanted_xr() const {
    char const* const named = sdp_media_rattr(audio, xr_attribute);
    std::istringstream in(named == nullptr ? "" : named);
    std::string wanted;
    for (std::string word; in >> word;) {
        std::string const name = word.substr(0, word.find('='));
        if (std::ranges::count(xr_blocks, name) != 0)
            wanted += (wanted.empty() ? "" : " ") + (name.starts_with("pkt-") ? word : name);
    }
    return wanted;
}

std::string session_description::codec_name() const {
    sdp_format const* const chosen = first_codec(audio);
    return chosen == nullptr ? "" : codec_of(*chosen)->name;
}

}  // namespace fxsphone
