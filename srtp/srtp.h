#pragma once

#include <cstdint>

#include "lib/str.h"
#include "lib/wipe.h"
#include "srtp/aes_cm.h"
#include "srtp/digest.h"

/// SRTP and SRTCP (RFC 3711) with the default transforms: AES-128 counter mode, HMAC-SHA1, key derivation rate 0.
///
/// One direction's keys, the operations on its counter, payload and tag, and whole packets put together from them.
/// There is no replay list and no key lifetime. Nothing reports an error: a wrong key shows as a tag that doesn't
/// match. A channel owns one context for each direction.

/// One direction of a stream. Usable from srtp_init() on; until then it has all-zero round keys.
struct srtp_ctx {
    srtp_ctx();
    srtp_ctx(srtp_ctx const&);
    srtp_ctx& operator=(srtp_ctx const&);
    ~srtp_ctx();

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
/// A received packet (header and payload, no MKI) as its tag sees it: absorbed once, under however many rollover
/// counters the tag is then tried.
class srtp_absorbed {
public:
    srtp_absorbed(srtp_ctx const& context, str const& packet) : mac(context.rtp_mac) { mac.update(packet); }
    ~srtp_absorbed() { wipe(&mac, sizeof mac); }
    srtp_absorbed(srtp_absorbed const&) = delete;
    srtp_absorbed& operator=(srtp_absorbed const&) = delete;

    /// Whether the tag (up to 20 bytes) is right under this rollover counter. Takes the same time whichever byte
    /// differs. An empty tag always is.
    bool matches(str const& tag, std::uint32_t roc) const;

private:
    hmac<sha1> mac;
};
/// Whether the tag is that of the packet under the rollover counter plus roc_step, or under 0 when that is
/// srtp_roc_restarted. If so, what was tried becomes the rollover counter; else nothing changes.
bool srtp_match_tag(srtp_ctx& context, str const& tag, srtp_absorbed const& packet, int roc_step);

// ---- SRTCP
/// What follows the first 8 bytes of a compound packet, encrypted and decrypted.
str srtcp_encrypt(srtp_ctx& context, str const& data, unsigned int index);
str srtcp_decrypt(srtp_ctx& context, str const& data, unsigned int index, str const& ssrc);
/// Appends the MKI and 10 bytes of tag to a packet that ends with E flag and index; the MKI is not authenticated.
void srtcp_append_tag(srtp_ctx const& context, str& packet, str const& mki);

// ---- whole packets, as functions of bytes and of the keys of one direction. Which stream a packet belongs to and in
// what order packets are played is not known here.
//
//     SRTP    RTP header (with CSRC list and extension), encrypted payload, MKI, tag
//     SRTCP   first 8 bytes of the RTCP packet, the rest encrypted, E flag (1 bit) and index (31 bits, big-endian),
//             MKI, tag of 10 bytes

/// What follows a packet's encrypted part.
struct srtp_trailer {
    int tag_length;  ///< bytes of the tag; 0 or less: no authentication
    str mki;         ///< master key identifier, may be empty
};

/// Encrypts and authenticates. sequence: extended, bits 16-31 are the rollover counter, bits 0-15 must be what the
/// header carries. `payload` is replaced by its encrypted form.
str srtp_protect(srtp_ctx& tx, str const& header, str& payload, std::uint32_t sequence, srtp_trailer const& trailer);

/// Checks a packet whose header takes header_bytes (at least 12) and decrypts its payload. sequence: the extended
/// number that its low 16 bits were taken for; gets the rollover counter that the tag proved. False: the tag fits
/// none of the rollover counters tried (the current one, +1, -1, +2, +3, 0, and *verified_roc with its successor unless
/// that is null), the packet is shorter than a tag, or the context was never keyed; nothing has changed then, in
/// neither context nor arguments.
///
/// Without authentication the rollover counter stays as it is, and so does the sequence; an MKI is not looked for
/// and counts as payload.
bool srtp_unprotect(srtp_ctx& rx, str const& packet, int header_bytes, std::uint32_t& sequence, str& payload,
                    srtp_trailer const& trailer, std::uint32_t const* verified_roc = nullptr);

/// Encrypts and authenticates a compound packet. index: 0..65535.
str srtcp_protect(srtp_ctx& tx, str const& packet, unsigned int index, str const& mki);

/// Decrypts a compound packet into `plain`, without index, MKI and tag. The tag is not verified, and it is taken to
/// be as long as the trailer says, although every sender's has 10 bytes. False, with `plain` unchanged: the E flag
/// is clear or the packet is too short to have one.
bool srtcp_unprotect(srtp_ctx& rx, str const& packet, str& plain, srtp_trailer const& trailer);
