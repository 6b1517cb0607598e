#include "tests/srtp/libsrtp_peer.h"

#include <srtp2/srtp.h>

#include <algorithm>
#include <cstdlib>

namespace {

/// The policy that a call's key material and tag length stand for.
void choose(srtp_policy_t& policy, int material_bytes, int tag_length) {
    bool const is_long = material_bytes == 44 || material_bytes == 46;
    if (tag_length == 16 && (material_bytes == 28 || material_bytes == 44)) {
        auto const set =
            is_long ? srtp_crypto_policy_set_aes_gcm_256_16_auth : srtp_crypto_policy_set_aes_gcm_128_16_auth;
        set(&policy.rtp);
        set(&policy.rtcp);
        return;
    }
    if (is_long) {
        (tag_length > 0 ? srtp_crypto_policy_set_aes_cm_256_hmac_sha1_80
                        : srtp_crypto_policy_set_aes_cm_256_null_auth)(&policy.rtp);
        srtp_crypto_policy_set_aes_cm_256_hmac_sha1_80(&policy.rtcp);
    } else {
        if (tag_length > 0)
            srtp_crypto_policy_set_rtp_default(&policy.rtp);
        else
            srtp_crypto_policy_set_aes_cm_128_null_auth(&policy.rtp);
        srtp_crypto_policy_set_rtcp_default(&policy.rtcp);
    }
    policy.rtp.auth_tag_len = tag_length;
}

/// A session, or nullptr.
srtp_t create(libsrtp_peer::direction way, str const& key, int tag_length, str const& mki) {
    static srtp_err_status_t const ready = srtp_init();
    str material = key + str('\0', std::max(30 - key.length(), 0)), id = mki;
    srtp_master_key_t master{material.buffer(), id.buffer(), static_cast<unsigned>(mki.length())};
    srtp_master_key_t* keys[] = {&master};
    srtp_policy_t policy{};
    choose(policy, key.length(), tag_length);
    policy.ssrc.type = way == libsrtp_peer::sends ? ssrc_any_outbound : ssrc_any_inbound;
    policy.window_size = 2048;
    policy.keys = keys;
    policy.num_master_keys = 1;
    srtp_t session = nullptr;
    bool const made = ready == srtp_err_status_ok && srtp_create(&session, &policy) == srtp_err_status_ok;
    return made ? session : nullptr;
}

}  // namespace

libsrtp_peer::libsrtp_peer(direction way, str const& key, int tag_length, str const& mki)
    : session(create(way, key, tag_length, mki)), has_mki(mki.empty() ? 0 : 1) {
    if (session == nullptr)
        std::abort();
}

bool libsrtp_peer::has(int key_bytes, int tag_length) {
    srtp_t const session = create(receives, str('k', key_bytes), tag_length, str());
    return session != nullptr && srtp_dealloc(session) == srtp_err_status_ok;
}

libsrtp_peer::~libsrtp_peer() {
    srtp_dealloc(session);
}

bool libsrtp_peer::convert(str& packet, direction way, bool rtcp) {
    alignas(4) unsigned char buffer[4096];
    int n = packet.length();
    std::copy_n(packet.cbuffer(), n, buffer);
    auto const status = way == sends
                            ? (rtcp ? srtp_protect_rtcp_mki : srtp_protect_mki)(session, buffer, &n, has_mki, 0)
                            : (rtcp ? srtp_unprotect_rtcp_mki : srtp_unprotect_mki)(session, buffer, &n, has_mki);
    if (status == srtp_err_status_ok)
        packet = str(buffer, n);
    return status == srtp_err_status_ok;
}

bool libsrtp_peer::set_roc(std::uint32_t ssrc, std::uint32_t roc) {
    return srtp_set_stream_roc(session, ssrc, roc) == srtp_err_status_ok;
}
