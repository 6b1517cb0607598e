#pragma once

#include <cstdint>

#include "lib/str.h"
#include "srtp/aes_cm.h"
#include "srtp/hmac.h"

/// SRTP and SRTCP (RFC 3711) with the default transforms: AES-128 counter mode, HMAC-SHA1, key derivation rate 0.
///
/// Here are one direction's keys and the operations on its counter, payload and tag; srtp/srtp_packet.h puts whole
/// packets together. There is no replay list and no key lifetime. Nothing reports an error: a wrong key shows as a
/// tag that doesn't match. A channel owns one context for each direction.

/// One direction of a stream. Usable from srtp_init() on; until then it has all-zero round keys.
struct srtp_ctx {
    str ssrc;                      ///< 4 bytes, of the local stream; empty in a receive context
    std::uint8_t initialised = 0;  ///< 1 once keyed
    std::uint32_t roc = 0;         ///< rollover counter: bits 16.. of the packet index
    aes_cm_context rtcp;           ///< keyed with the SRTCP session keys
    aes_cm_context rtp;            ///< keyed with the SRTP session keys
    hmac<sha1> rtcp_mac;           ///< under rtcp.auth_key, ready to be copied for each packet
    hmac<sha1> rtp_mac;            ///< under rtp.auth_key
};

/// Bytes of the SRTCP tag, whatever the SRTP tag's length (RFC 3711 section 5.2).
constexpr int srtcp_tag_bytes = 10;
/// The roc_step that stands for a rollover counter of 0: the sender began anew.
constexpr int srtp_roc_restarted = 255;

/// Keys a direction: 16 bytes of master key, 14 of master salt (missing bytes are zero). The rollover counter
/// starts at 0. ssrc: of the sender in a transmit context, else empty.
void srtp_init(srtp_ctx& context, str const& master_key, str const& master_salt, str const& ssrc);
/// The same from the material of a call: master key with the master salt behind it.
void srtp_key(srtp_ctx& context, str const& material, str const& ssrc);

// ---- counter of the SRTP cipher
/// Sets rollover counter, low 16 bits of the sequence number, and block 0; leaves the SSRC's bytes alone.
void srtp_set_index(srtp_ctx& context, unsigned int seq);
void srtp_set_local_ssrc(srtp_ctx& context);
void srtp_set_rem_ssrc(srtp_ctx& context, str const& ssrc);

// ---- the same of the SRTCP cipher
/// Only the low 16 bits of the index count, so it must never pass 65535.
void srtcp_set_index(srtp_ctx& context, unsigned int index);
void srtcp_set_local_ssrc(srtp_ctx& context);
void srtcp_set_rem_ssrc(srtp_ctx& context, str const& ssrc);

// ---- SRTP
/// The payload encrypted as packet `seq` (low 16 bits) of the local stream; `roc` becomes the rollover counter.
str srtp_encrypt(srtp_ctx& context, str const& payload, unsigned int seq, int roc);
/// The payload decrypted with the index that srtp_set_index() was given before; `seq` is not looked at.
str srtp_decrypt(srtp_ctx& context, str const& payload, unsigned int seq, str const& ssrc);
/// The first tag_length bytes, 20 at most, of the HMAC over packet and rollover counter; empty for 0.
str srtp_get_tag(srtp_ctx& context, str const& packet, int tag_length);
/// Whether the tag (up to 20 bytes) is that of the packet (header and payload, no MKI) under the rollover counter
/// plus roc_step, or under 0 when that is srtp_roc_restarted. If so, what was tried becomes the rollover counter;
/// else nothing changes. Takes the same time whichever byte differs. An empty tag matches everything.
bool srtp_match_tag(srtp_ctx& context, str const& tag, str const& packet, int roc_step);

// ---- SRTCP
/// What follows the first 8 bytes of a compound packet, encrypted and decrypted.
str srtcp_encrypt(srtp_ctx& context, str const& data, unsigned int index);
str srtcp_decrypt(srtp_ctx& context, str const& data, unsigned int index, str const& ssrc);
/// Appends the MKI and 10 bytes of tag to a packet that ends with E flag and index; the MKI is not authenticated.
void srtcp_append_tag(srtp_ctx const& context, str& packet, str const& mki);
