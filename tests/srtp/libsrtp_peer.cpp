#include "tests/srtp/libsrtp_peer.h"

#include <srtp2/srtp.h>

#include <cstdio>
#include <cstdlib>

namespace {

bool must(srtp_err_status_t status, char const* what) {
    if (status == srtp_err_status_ok)
        return true;
    std::fprintf(stderr, "libsrtp2: %s failed with %d\n", what, static_cast<int>(status));
    std::abort();
}

template <typename call>
bool convert(str& packet, call function) {
    alignas(4) unsigned char buffer[4096];
    int n = packet.length();
    for (int i = 0; i < n; i++)
        buffer[i] = packet[i];
    if (function(buffer, &n) != srtp_err_status_ok)
        return false;
    packet = str(buffer, n);
    return true;
}

}  // namespace

libsrtp_peer::libsrtp_peer(direction way, str const& key, int tag_length, str const& mki)
    : has_mki(mki.empty() ? 0 : 1) {
    static bool const ready = must(srtp_init(), "srtp_init");
    static_cast<void>(ready);
    str material = key + str('\0', 30 - key.length());
    str id = mki;
    srtp_master_key_t master{material.buffer(), id.buffer(), static_cast<unsigned>(mki.length())};
    srtp_master_key_t* keys[] = {&master};

    srtp_policy_t policy{};
    if (tag_length > 0)
        srtp_crypto_policy_set_rtp_default(&policy.rtp);
    else
        srtp_crypto_policy_set_aes_cm_128_null_auth(&policy.rtp);
    policy.rtp.auth_tag_len = tag_length;
    srtp_crypto_policy_set_rtcp_default(&policy.rtcp);
    policy.ssrc.type = way == sends ? ssrc_any_outbound : ssrc_any_inbound;
    policy.window_size = 128;
    if (has_mki) {
        policy.keys = keys;
        policy.num_master_keys = 1;
    } else {
        policy.key = material.buffer();
    }
    must(srtp_create(&session, &policy), "srtp_create");
}

libsrtp_peer::~libsrtp_peer() {
    srtp_dealloc(session);
}

bool libsrtp_peer::protect(str& packet) {
    return convert(packet, [&](void* p, int* n) { return srtp_protect_mki(session, p, n, has_mki, 0); });
}

bool libsrtp_peer::unprotect(str& packet) {
    return convert(packet, [&](void* p, int* n) { return srtp_unprotect_mki(session, p, n, has_mki); });
}

bool libsrtp_peer::protect_rtcp(str& packet) {
    return convert(packet, [&](void* p, int* n) { return srtp_protect_rtcp_mki(session, p, n, has_mki, 0); });
}

bool libsrtp_peer::unprotect_rtcp(str& packet) {
    return convert(packet, [&](void* p, int* n) { return srtp_unprotect_rtcp_mki(session, p, n, has_mki); });
}

bool libsrtp_peer::set_roc(std::uint32_t ssrc, std::uint32_t roc) {
    return srtp_set_stream_roc(session, ssrc, roc) == srtp_err_status_ok;
}
