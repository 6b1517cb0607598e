#include "srtp/srtp.h"

#include <algorithm>
#include <initializer_list>

#include "lib/bytes.h"
#include "lib/wire.h"

namespace {

using hmac_sha1 = hmac<sha1>;

// Where the counter block takes what (RFC 3711 section 4.1.1).
constexpr int at_ssrc = 4;
constexpr int at_roc = 8;
constexpr int at_sequence = 12;
constexpr int at_block = 14;

/// counter[at..] = salt[at..] XOR value.
void combine32(aes_cm_context& cipher, int at, std::uint32_t value) {
    wire::put32(&cipher.counter[at], wire::get32(cipher.offset.octets() + at) ^ value);
}

void set_sequence(aes_cm_context& cipher, unsigned int seq) {
    wire::put16(&cipher.counter[at_sequence], wire::get16(cipher.offset.octets() + at_sequence) ^ seq);
    cipher.counter[at_block] = cipher.counter[at_block + 1] = 0;
}

void set_ssrc(aes_cm_context& cipher, str const& ssrc) {
    combine32(cipher, at_ssrc, str2uint32(ssrc));
}

/// Keys one cipher and the HMAC that goes with it.
void key_cipher(aes_cm_context& cipher, hmac_sha1& mac, void (*derive)(aes_cm_context&, str const&),
                str const& master_key, str const& master_salt) {
    aes_cm_init(cipher, master_key, master_salt);
    derive(cipher, master_salt);
    mac = hmac_sha1(cipher.auth_key);
}

/// Ends an HMAC over a packet with the rollover counter behind it (RFC 3711 section 4.2).
void finish(hmac_sha1& mac, std::uint32_t roc, unsigned char (&result)[hmac_sha1::mac_bytes]) {
    unsigned char suffix[4];
    wire::put32(suffix, roc);
    mac.update(suffix, sizeof(suffix));
    mac.finish(result);
}

}  // namespace

srtp_ctx::srtp_ctx() = default;
srtp_ctx::srtp_ctx(srtp_ctx const&) = default;
srtp_ctx& srtp_ctx::operator=(srtp_ctx const&) = default;
srtp_ctx::~srtp_ctx() = default;

void srtp_init(srtp_ctx& context, str const& master_key, str const& master_salt, str const& ssrc) {
    context.ssrc = ssrc;
    context.initialised = 1;
    context.roc = 0;
    key_cipher(context.rtp, context.rtp_mac, aes_cm_prf_rtp, master_key, master_salt);
    key_cipher(context.rtcp, context.rtcp_mac, aes_cm_prf_rtcp, master_key, master_salt);
    wipe_stack();
}

void srtp_key(srtp_ctx& context, str const& material, str const& ssrc) {
    constexpr int master_key_bytes = 16;
    constexpr int master_salt_bytes = 14;
    srtp_init(context, material.leftstr(master_key_bytes), material.substr(master_key_bytes, master_salt_bytes), ssrc);
}

void srtp_set_index(srtp_ctx& context, unsigned int seq) {
    combine32(context.rtp, at_roc, context.roc);
    set_sequence(context.rtp, seq);
}

void srtp_set_local_ssrc(srtp_ctx& context) {
    set_ssrc(context.rtp, context.ssrc);
}

void srtp_set_rem_ssrc(srtp_ctx& context, str const& ssrc) {
    set_ssrc(context.rtp, ssrc);
}

void srtcp_set_index(srtp_ctx& context, unsigned int index) {
    set_sequence(context.rtcp, index);
}

void srtcp_set_local_ssrc(srtp_ctx& context) {
    set_ssrc(context.rtcp, context.ssrc);
}

void srtcp_set_rem_ssrc(srtp_ctx& context, str const& ssrc) {
    set_ssrc(context.rtcp, ssrc);
}

str srtp_encrypt(srtp_ctx& context, str const& payload, unsigned int seq, int roc) {
    context.roc = static_cast<std::uint32_t>(roc);
    srtp_set_index(context, seq);
    srtp_set_local_ssrc(context);
    return aes_cm_encrypt_block(context.rtp, payload);
}

str srtp_decrypt(srtp_ctx& context, str const& payload, unsigned int, str const& ssrc) {
    srtp_set_rem_ssrc(context, ssrc);
    return aes_cm_encrypt_block(context.rtp, payload);
}

str srtp_get_tag(srtp_ctx& context, str const& packet, int tag_length) {
    if (tag_length == 0)
        return str();
    unsigned char result[hmac_sha1::mac_bytes];
    hmac_sha1 mac = context.rtp_mac;
    mac.update(packet);
    finish(mac, context.roc, result);
    return str(result, std::min(tag_length, hmac_sha1::mac_bytes));
}

bool srtp_absorbed::matches(str const& tag, std::uint32_t roc) const {
    if (tag.length() > hmac_sha1::mac_bytes)
        return false;
    unsigned char result[hmac_sha1::mac_bytes];
    hmac_sha1 own = mac;
    finish(own, roc, result);
    unsigned char const* const given = tag.cbuffer();
    int difference = 0;
    for (int i = 0; i < tag.length(); i++)
        difference |= given[i] ^ result[i];
    return difference == 0;
}

bool srtp_match_tag(srtp_ctx& context, str const& tag, srtp_absorbed const& packet, int roc_step) {
    std::uint32_t const guess = roc_step == srtp_roc_restarted ? 0 : context.roc + static_cast<std::uint32_t>(roc_step);
    if (!packet.matches(tag, guess))
        return false;
    context.roc = guess;
    return true;
}

str srtcp_encrypt(srtp_ctx& context, str const& data, unsigned int index) {
    srtcp_set_index(context, index);
    srtcp_set_local_ssrc(context);
    return aes_cm_encrypt_block(context.rtcp, data);
}

str srtcp_decrypt(srtp_ctx& context, str const& data, unsigned int index, str const& ssrc) {
    srtcp_set_index(context, index);
    srtcp_set_rem_ssrc(context, ssrc);
    return aes_cm_encrypt_block(context.rtcp, data);
}

void srtcp_append_tag(srtp_ctx const& context, str& packet, str const& mki) {
    unsigned char tag[hmac_sha1::mac_bytes];
    hmac_sha1 mac = context.rtcp_mac;
    mac.update(packet);
    mac.finish(tag);
    packet += mki;
    packet.append(tag, srtcp_tag_bytes);
}

// ---- whole packets

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

/// Finds the rollover counter under which the tag is right, and makes it the context's. The one that was verified last,
/// if there is one, and its successor come behind the steps from ours.
bool find_roc(srtp_ctx& rx, str const& tag, srtp_absorbed const& packet, std::uint32_t const* verified) {
    for (int const step : roc_steps)
        if (srtp_match_tag(rx, tag, packet, step))
            return true;
    for (std::uint32_t const wrapped : {0u, 1u})
        if (verified && packet.matches(tag, *verified + wrapped)) {
            rx.roc = *verified + wrapped;
            return true;
        }
    return false;
}

}  // namespace

str srtp_protect(srtp_ctx& tx, str const& header, str& payload, std::uint32_t sequence, srtp_trailer const& trailer) {
    payload = srtp_encrypt(tx, payload, sequence & 0xFFFF, static_cast<int>(sequence >> 16));
    str packet = header + payload;
    str const tag = srtp_get_tag(tx, packet, trailer.tag_length);
    packet += trailer.mki;
    packet += tag;
    return packet;
}

bool srtp_unprotect(srtp_ctx& rx, str const& packet, int header_bytes, std::uint32_t& sequence, str& payload,
                    srtp_trailer const& trailer, std::uint32_t const* verified_roc) {
    if (!rx.initialised)
        return false;
    str authenticated = packet;
    if (trailer.tag_length > 0) {
        str const tag = packet.rightstr(trailer.tag_length);
        authenticated = packet.leftstr(packet.length() - tag.length() - trailer.mki.length());
        if (tag.length() < trailer.tag_length || !find_roc(rx, tag, srtp_absorbed(rx, authenticated), verified_roc))
            return false;
        sequence = rx.roc << 16 | (sequence & 0xFFFF);
    }
    srtp_set_index(rx, sequence);
    payload = srtp_decrypt(rx, authenticated.substr(header_bytes), sequence, packet.substr(at_rtp_ssrc, ssrc_bytes));
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
