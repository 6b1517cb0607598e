#pragma once

#include <cstdint>

#include "lib/str.h"
#include "srtp/replay_window.h"
#include "srtp/session_keys.h"
#include "srtp/srtp.h"

/// SRTP and SRTCP as RFC 3711, RFC 6188 and RFC 7714 have them, for the extension `srtp`: each SSRC has its own packet
/// index and replay lists, the rollover counter is estimated, the SRTCP index has 31 bits, and nothing of a packet is
/// used or kept before its tag is right.
///
///     counter mode   SRTP   RTP header, encrypted payload, MKI, tag
///                    SRTCP  8 bytes, the rest encrypted, E flag and index, MKI, tag of 10 bytes
///     AEAD           SRTP   RTP header, encrypted payload, tag, MKI
///                    SRTCP  8 bytes, the rest encrypted, tag, E flag and index, MKI
///
/// A re-key keeps the indices (RFC 3711 section 3.3.1). Key lifetimes are not watched: call control changes keys before
/// 2^48 packets or 2^31 reports.

/// What both directions have: keys from the material of a call.
class srtp_direction {
public:
    bool is_keyed() const { return !key_material.empty(); }

protected:
    /// False: nothing is different.
    bool derive(str const& new_material, srtp_trailer const& new_trailer);

    bool aead = false;
    int tag_bytes = 0;       ///< of SRTP; 0: no authentication
    int rtcp_tag_bytes = 0;  ///< of SRTCP
    str mki;
    srtp_session_keys rtp;
    srtp_session_keys rtcp;

private:
    str key_material;  ///< master key, then master salt
};

/// Protects what is sent.
class srtp_sender : public srtp_direction {
public:
    /// Empty material: no keys. The indices of the SSRCs go on.
    void set_keys(str const& material, srtp_trailer const& trailer);

    /// A packet. sequence: counts up over all packets sent, its low 16 bits are what the header carries. The rollover
    /// counter is 0 at the first packet of an SSRC.
    str protect(str const& header, str const& payload, std::uint32_t sequence);
    /// A compound packet, of 8 bytes at least.
    str protect_rtcp(str const& compound);

private:
    struct stream {
        std::uint32_t ssrc = 0;
        bool used = false;
        bool any_packet = false;
        std::uint32_t first_cycle = 0;  ///< bits 16-31 of the sequence of the first packet
        std::uint32_t reports = 0;      ///< index of the next one
    };
    stream& of(std::uint32_t ssrc);

    /// An SSRC that is used again must not repeat an index; chosen: as many as a call may be expected to have.
    static constexpr int stream_count = 8;
    stream streams[stream_count];
    int next = 0;  ///< place of the next new SSRC
};

/// Checks and decrypts what is received.
class srtp_receiver : public srtp_direction {
public:
    /// Empty material: no keys, all streams forgotten. The same again changes nothing.
    void set_keys(str const& material, srtp_trailer const& trailer);
    bool authenticates() const { return tag_bytes > 0; }

    /// Checks a packet whose header takes header_bytes (at least 12) and decrypts its payload; `sequence` gets its
    /// number with the rollover counter above it. False: it came before or is too old, or its tag is wrong; nothing has
    /// changed then.
    bool unprotect(str const& packet, int header_bytes, std::uint32_t& sequence, str& payload);
    /// The same of a compound packet; one that is authenticated but not encrypted is accepted.
    bool unprotect_rtcp(str const& compound, str& plain);

private:
    struct stream {
        std::uint32_t ssrc = 0;
        bool used = false;
        bool rekeyed = false;  ///< nothing has come under these keys
        std::uint32_t last_used = 0;
        replay_window packets;
        replay_window reports;
    };
    /// A packet taken apart.
    struct parts {
        std::uint32_t ssrc;
        str clear, encrypted, word, tag;
    };
    stream* find(std::uint32_t ssrc);
    stream& touch(std::uint32_t ssrc);
    bool is_right(srtp_session_keys const& keys, parts const& packet, std::uint64_t index) const;
    bool find_index(stream const* known, std::uint16_t number, parts const& packet, std::uint64_t& index) const;
    bool take_apart(str const& packet, int clear_bytes, parts& out) const;
    bool take_apart_rtcp(str const& compound, parts& out) const;

    /// Chosen: a caller and whoever it is transferred to, with room. Of more, the one unused for longest goes.
    static constexpr int stream_count = 4;
    stream streams[stream_count];
    std::uint32_t uses = 0;
};
