#include "srtp/checked_srtp.h"

#include <algorithm>

#include "lib/bytes.h"
#include "lib/wire.h"

namespace {

constexpr int at_rtp_ssrc = 8;
constexpr int at_rtcp_ssrc = 4;
constexpr int clear_rtcp_bytes = 8;
constexpr int rtcp_word_bytes = 4;
constexpr std::uint32_t encrypted_flag = 0x80000000;

std::uint32_t ssrc_at(str const& packet, int at) {
    return str2uint32(packet.substr(at, 4));
}

/// The same time whichever byte differs.
bool equal(str const& a, str const& b) {
    int difference = a.length() ^ b.length();
    for (int i = 0; i < std::min(a.length(), b.length()); i++)
        difference |= a[i] ^ b[i];
    return difference == 0;
}

/// RFC 3711 section 3.3.1: the index nearest to the highest one so far; negative before the first rollover.
std::int64_t estimate(std::uint64_t highest, std::uint16_t number) {
    std::int64_t const counter = static_cast<std::int64_t>(highest >> 16);
    int const last = static_cast<int>(highest & 0xFFFF);
    int step = 0;
    if (last < 0x8000)
        step = number - last > 0x8000 ? -1 : 0;
    else
        step = last - 0x8000 > number ? 1 : 0;
    return (counter + step) * 0x10000 + number;
}

}  // namespace

bool srtp_direction::derive(str const& new_material, srtp_trailer const& new_trailer) {
    srtp_suite const how = srtp_suite::of(new_material.length(), new_trailer.tag_length);
    tag_bytes = how.aead ? srtp_session_keys::aead_tag_bytes
                         : std::clamp(new_trailer.tag_length, 0, srtp_session_keys::hmac_bytes);
    rtcp_tag_bytes = how.aead ? srtp_session_keys::aead_tag_bytes : srtcp_tag_bytes;
    mki = new_trailer.mki;
    if (new_material == key_material && how.aead == aead)
        return false;
    key_material = new_material;
    aead = how.aead;
    if (is_keyed()) {
        rtp.derive(how, key_material, srtp_session_keys::kind::rtp);
        rtcp.derive(how, key_material, srtp_session_keys::kind::rtcp);
    } else {
        rtp.wipe();
        rtcp.wipe();
    }
    return true;
}

// ---- sending

void srtp_sender::set_keys(str const& material, srtp_trailer const& trailer) {
    derive(material, trailer);
}

srtp_sender::stream& srtp_sender::of(std::uint32_t ssrc) {
    for (stream& known : streams)
        if (known.used && known.ssrc == ssrc)
            return known;
    stream& fresh = streams[next];
    next = (next + 1) % stream_count;
    fresh = stream{.ssrc = ssrc, .used = true};
    return fresh;
}

str srtp_sender::protect(str const& header, str const& payload, std::uint32_t sequence) {
    stream& own = of(ssrc_at(header, at_rtp_ssrc));
    if (!own.any_packet)
        own.first_cycle = sequence >> 16;
    own.any_packet = true;
    std::uint64_t const index = sequence - (own.first_cycle << 16);
    str const encrypted = rtp.crypt(own.ssrc, index, payload);
    str const tag = rtp.tag(own.ssrc, index, header, encrypted, str::null).leftstr(tag_bytes);
    return header + encrypted + (aead ? tag + mki : mki + tag);
}

str srtp_sender::protect_rtcp(str const& compound) {
    stream& own = of(ssrc_at(compound, at_rtcp_ssrc));
    std::uint32_t const index = own.reports;
    own.reports = (index + 1) & ~encrypted_flag;
    str const clear = compound.leftstr(clear_rtcp_bytes);
    str const encrypted = rtcp.crypt(own.ssrc, index, compound.substr(clear_rtcp_bytes));
    str const word = utils::int2str(index | encrypted_flag, rtcp_word_bytes);
    str const tag = rtcp.tag(own.ssrc, index, clear, encrypted, word).leftstr(rtcp_tag_bytes);
    return clear + encrypted + (aead ? tag + word + mki : word + mki + tag);
}

// ---- receiving

void srtp_receiver::set_keys(str const& material, srtp_trailer const& trailer) {
    if (!derive(material, trailer))
        return;
    for (stream& s : streams) {
        s.rekeyed = true;
        s.reports = replay_window();
        s.used = s.used && is_keyed();
    }
}

srtp_receiver::stream* srtp_receiver::find(std::uint32_t ssrc) {
    for (stream& s : streams)
        if (s.used && s.ssrc == ssrc)
            return &s;
    return nullptr;
}

/// The stream of an authentic packet, which is the newest now.
srtp_receiver::stream& srtp_receiver::touch(std::uint32_t ssrc) {
    stream* found = find(ssrc);
    if (!found) {
        found = &*std::min_element(streams, streams + stream_count, [this](stream const& a, stream const& b) {
            return a.used != b.used ? !a.used : uses - a.last_used > uses - b.last_used;
        });
        *found = stream{.ssrc = ssrc, .used = true};
    }
    found->last_used = ++uses;
    return *found;
}

bool srtp_receiver::is_right(srtp_session_keys const& keys, parts const& packet, std::uint64_t index) const {
    str const own = keys.tag(packet.ssrc, index, packet.clear, packet.encrypted, packet.word);
    return equal(own.leftstr(packet.tag.length()), packet.tag);
}

/// The index under which the packet is new and its tag right. The first one under new keys may also come from a sender
/// that began anew with them.
bool srtp_receiver::find_index(stream const* known, std::uint16_t number, parts const& packet,
                               std::uint64_t& index) const {
    bool const began = known && !known->packets.empty();
    std::int64_t const estimated = began ? estimate(known->packets.get_highest(), number) : number;
    bool const replayed = authenticates() && began && !known->rekeyed &&
                          !known->packets.is_new(static_cast<std::uint64_t>(std::max<std::int64_t>(estimated, 0)));
    index = static_cast<std::uint64_t>(estimated);
    if (estimated >= 0 && !replayed && is_right(rtp, packet, index))
        return true;
    index = number;
    return began && known->rekeyed && is_right(rtp, packet, index);
}

/// False: it is too short.
bool srtp_receiver::take_apart(str const& packet, int clear_bytes, parts& out) const {
    int const at_trailer = packet.length() - tag_bytes - mki.length();
    if (at_trailer < clear_bytes)
        return false;
    out.clear = packet.leftstr(clear_bytes);
    out.encrypted = packet.substr(clear_bytes, at_trailer - clear_bytes);
    out.tag = packet.substr(aead ? at_trailer : at_trailer + mki.length(), tag_bytes);
    return true;
}

bool srtp_receiver::unprotect(str const& packet, int header_bytes, std::uint32_t& sequence, str& payload) {
    parts taken{ssrc_at(packet, at_rtp_ssrc), str(), str(), str(), str()};
    std::uint64_t index = 0;
    if (!is_keyed() || !take_apart(packet, header_bytes, taken) ||
        !find_index(find(taken.ssrc), static_cast<std::uint16_t>(sequence), taken, index))
        return false;
    stream& from = touch(taken.ssrc);
    if (from.rekeyed)
        from.packets = replay_window();
    from.rekeyed = false;
    from.packets.add(index);
    sequence = static_cast<std::uint32_t>(index);
    payload = rtp.crypt(taken.ssrc, index, taken.encrypted);
    return true;
}

bool srtp_receiver::take_apart_rtcp(str const& compound, parts& out) const {
    int const at_trailer = compound.length() - rtcp_tag_bytes - mki.length() - rtcp_word_bytes;
    if (at_trailer < clear_rtcp_bytes)
        return false;
    int const at_word = aead ? at_trailer + rtcp_tag_bytes : at_trailer;
    int const at_tag = aead ? at_trailer : compound.length() - rtcp_tag_bytes;
    out.word = compound.substr(at_word, rtcp_word_bytes);
    out.tag = compound.substr(at_tag, rtcp_tag_bytes);
    int const clear_bytes = str2uint32(out.word) & encrypted_flag ? clear_rtcp_bytes : at_trailer;
    out.clear = compound.leftstr(clear_bytes);
    out.encrypted = compound.substr(clear_bytes, at_trailer - clear_bytes);
    return true;
}

bool srtp_receiver::unprotect_rtcp(str const& compound, str& plain) {
    parts taken{ssrc_at(compound, at_rtcp_ssrc), str(), str(), str(), str()};
    if (!is_keyed() || !take_apart_rtcp(compound, taken))
        return false;
    std::uint32_t const index = str2uint32(taken.word) & ~encrypted_flag;
    stream const* const known = find(taken.ssrc);
    if ((known && !known->reports.is_new(index)) || !is_right(rtcp, taken, index))
        return false;
    touch(taken.ssrc).reports.add(index);
    plain = taken.clear + rtcp.crypt(taken.ssrc, index, taken.encrypted);
    return true;
}
