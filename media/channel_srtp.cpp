#include "lib/log_line.h"
#include "media/channel.h"
#include "media/notifications.h"
#include "srtp/srtp_packet.h"

namespace {

// A call's key material: master key, then master salt.
constexpr int master_key_bytes = 16;

str master_key(str const& material) {
    return material.leftstr(master_key_bytes);
}

str master_salt(str const& material) {
    constexpr int master_salt_bytes = 14;
    return material.substr(master_key_bytes, master_salt_bytes);
}

}  // namespace

void channel::set_srtp(str const& receive, str const& transmit, int tag_length, str const& mki) {
    srtp_rx_key = receive;
    srtp_tx_key = transmit;
    srtp_tag_length = tag_length;
    srtp_mki = mki;
    srtp_verified = false;
    if (transmit.empty())
        return;
    srtp_init(srtp.tx, master_key(transmit), master_salt(transmit), local_ssrc);
    srtp_init(srtp.rx, master_key(receive), master_salt(receive), str::null);
    log_line(5, "SRTP Tx=%h Rx=%h", arg_str(transmit), arg_str(receive));
}

/// A new stream starts with fresh keys.
void channel::key_reception() {
    if (!srtp_rx_key.empty())
        srtp_init(srtp.rx, master_key(srtp_rx_key), master_salt(srtp_rx_key), str::null);
}

/// Checks and decrypts; the sequence number gets the rollover counter that the tag proved. False: wrong tag.
bool channel::unprotect(str const& data, rtp_header const& header, std::uint32_t& sequence, str& payload) {
    if (!srtp_unprotect(srtp.rx, data, header.bytes, sequence, payload, {srtp_tag_length, srtp_mki})) {
        count_mac_failure(sequence);
        return false;
    }
    if (srtp_tag_length > 0 && !srtp_verified) {
        srtp_verified = true;
        notify::srtp_verified(id);
    }
    return true;
}

void channel::count_mac_failure(std::uint32_t sequence) {
    srtp_mac_failures++;
    bool const noteworthy = srtp_mac_failures == 10 || srtp_mac_failures == 100 || srtp_mac_failures == 1000;
    if (noteworthy)
        log_line(4, "Dropped %d SRTP packets with wrong MAC (seq=%d)", arg_int(srtp_mac_failures),
                 arg_int(static_cast<int>(sequence)));
}

str channel::protect_rtcp(str const& compound) {
    constexpr unsigned last_index = 0xFFFF;  // only 16 bits of the index reach the cipher's counter
    unsigned const index = rtcp_seqnr;
    rtcp_seqnr = (rtcp_seqnr + 1) & last_index;
    return srtcp_protect(srtp.tx, compound, index, srtp_mki);
}

/// The packet decrypted, when a transmit key switches RTCP protection on and the packet says that it is encrypted.
str channel::decrypt_srtcp(str const& compound) {
    str plain = compound;
    if (!srtp_tx_key.empty() && !srtcp_unprotect(srtp.rx, compound, plain, {srtp_tag_length, srtp_mki}))
        log_line(9, "RTCP not enrypted");
    return plain;
}
