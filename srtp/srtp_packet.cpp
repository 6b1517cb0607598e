#include "srtp/srtp_packet.h"

#include <algorithm>

#include "lib/bytes.h"

namespace {

constexpr int at_rtp_ssrc = 8;
constexpr int at_rtcp_ssrc = 4;
constexpr int ssrc_bytes = 4;
constexpr int clear_rtcp_bytes = 8;
constexpr int rtcp_index_bytes = 4;
constexpr std::uint32_t encrypted_flag = 0x80000000;

/// What the sender's rollover counter may be, likeliest first: ours, the next one (it wrapped), the last one (a late
/// packet), two that were missed, and that of a sender that began anew.
constexpr int roc_steps[] = {0, 1, -1, 2, 3, srtp_roc_restarted};

bool find_roc(srtp_ctx& rx, str const& tag, str const& authenticated) {
    for (int const step : roc_steps)
        if (srtp_match_tag(rx, tag, authenticated, step))
            return true;
    return false;
}

}  // namespace

str srtp_protect(srtp_ctx& tx, str const& header, str& payload, std::uint32_t sequence,
                 srtp_trailer const& trailer) {
    payload = srtp_encrypt(tx, payload, sequence & 0xFFFF, static_cast<int>(sequence >> 16));
    str packet = header + payload;
    str const tag = srtp_get_tag(tx, packet, trailer.tag_length);
    packet += trailer.mki;
    packet += tag;
    return packet;
}

bool srtp_unprotect(srtp_ctx& rx, str const& packet, int header_bytes, std::uint32_t& sequence, str& payload,
                    srtp_trailer const& trailer) {
    str authenticated = packet;
    if (trailer.tag_length > 0) {
        str const tag = packet.rightstr(trailer.tag_length);
        authenticated = packet.leftstr(packet.length() - tag.length() - trailer.mki.length());
        if (tag.length() < trailer.tag_length || !find_roc(rx, tag, authenticated))
            return false;
        sequence = rx.roc << 16 | (sequence & 0xFFFF);
    }
    srtp_set_index(rx, sequence);
    payload = srtp_decrypt(rx, authenticated.substr(header_bytes), sequence,
                           packet.substr(at_rtp_ssrc, ssrc_bytes));
    return true;
}

str srtcp_protect(srtp_ctx& tx, str const& packet, unsigned int index, str const& mki) {
    str result = packet.leftstr(clear_rtcp_bytes) + srtcp_encrypt(tx, packet.substr(clear_rtcp_bytes), index);
    result += utils::int2str(index | encrypted_flag, rtcp_index_bytes);
    srtcp_append_tag(tx, result, mki);
    return result;
}

bool srtcp_unprotect(srtp_ctx& rx, str const& packet, str& plain, srtp_trailer const& trailer) {
    int const tag_length = std::clamp(trailer.tag_length, 0, packet.length());
    int const at_index = packet.length() - tag_length - trailer.mki.length() - rtcp_index_bytes;
    std::uint32_t const word = str2uint32(packet.substr(at_index, rtcp_index_bytes));
    if (at_index < clear_rtcp_bytes || !(word & encrypted_flag))
        return false;
    str const data = packet.substr(clear_rtcp_bytes, at_index - clear_rtcp_bytes);
    plain = packet.leftstr(clear_rtcp_bytes) +
            srtcp_decrypt(rx, data, word & ~encrypted_flag, packet.substr(at_rtcp_ssrc, ssrc_bytes));
    return true;
}
