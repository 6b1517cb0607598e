#pragma once

#include <cstdint>

#include "lib/str.h"

struct srtp_ctx_t_;

/// The other end of a protected stream, played by libsrtp2: one direction, any SSRC. Not copyable.
class libsrtp_peer {
public:
    enum direction { sends, receives };

    /// key: master key, then master salt; with the tag's length its own says which transforms, as srtp_suite has it.
    /// 30 bytes are AES-128 in counter mode with HMAC-SHA1, and so are fewer, missing ones are zero. There a tag length
    /// of 0 means no authentication of SRTP, and SRTCP tags have 10 bytes.
    /// A libsrtp2 without it aborts, see has().
    libsrtp_peer(direction way, str const& key, int tag_length = 10, str const& mki = str());
    ~libsrtp_peer();
    libsrtp_peer(libsrtp_peer const&) = delete;
    libsrtp_peer& operator=(libsrtp_peer const&) = delete;

    /// Whether this libsrtp2 has the transform: AES-GCM needs one that was built with a cryptographic library.
    static bool has(int key_bytes, int tag_length);

    // Each turns a whole packet into the other form; false when libsrtp2 refuses.
    bool protect(str& packet) { return convert(packet, sends, false); }
    bool unprotect(str& packet) { return convert(packet, receives, false); }
    bool protect_rtcp(str& packet) { return convert(packet, sends, true); }
    bool unprotect_rtcp(str& packet) { return convert(packet, receives, true); }

    /// Moves a stream that has had a packet to another rollover counter.
    bool set_roc(std::uint32_t ssrc, std::uint32_t roc);

private:
    bool convert(str& packet, direction way, bool rtcp);

    srtp_ctx_t_* session = nullptr;
    unsigned has_mki;
};
