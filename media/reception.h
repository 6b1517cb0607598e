#pragma once

#include <cstdint>

#include "lib/extensions.h"
#include "lib/str.h"
#include "media/rtp_header.h"
#include "media/source_statistics.h"
#include "srtp/checked_srtp.h"
#include "srtp/srtp.h"

/// The receiving side of one RTP stream: which payload types are accepted, whose SSRC is followed, what a sequence
/// number stands for, SRTP, and the counters that reports need. A packet goes in, a verdict and a numbered payload
/// come out. With the extension `srtp` a protected packet is checked before anything else is done with it. Knows no
/// socket, no address and no play-out beyond the point at which that stands; tells nobody, what happened is in the
/// result. Times are 8 kHz ticks and wrap. A channel owns one.
class reception {
public:
    /// What a packet did to the choice of the stream.
    enum class stream {
        followed,   ///< it belongs to the one that is followed
        first,      ///< it is the first one: its SSRC is followed from now on
        taken_over  ///< its SSRC replaces another one, of which nothing came for 100 ms
    };
    /// Where play-out stands.
    struct position {
        std::uint32_t last_played;  ///< extended sequence number
        bool playing;
    };
    /// What became of a packet. Unless it is accepted, only `change`, `dropped_for_tag` and, with the latter,
    /// `sequence` mean anything.
    struct result {
        bool accepted = false;
        stream change = stream::followed;  ///< also of a packet that is then dropped for its tag
        int dropped_for_tag = 0;           ///< dropped for a wrong SRTP tag: how many so far; else 0
        bool first_verified = false;       ///< the first packet with a right tag since the keys were set
        bool steps_back = false;           ///< the sender went back to numbers already played: follow it
        int codec = 0;
        std::uint32_t sequence = 0;   ///< extended
        std::uint32_t timestamp = 0;  ///< of the RTP header
        bool marker = false;
        str payload;  ///< decrypted
    };

    /// From received payload types to codec numbers, a byte each; 128 and above: not accepted.
    /// With the extension `playout` payload type 13 is comfort noise unless the map has a codec for it.
    void set_payload_map(str const& map) { payload_map = map; }
    /// Master key and salt (30 bytes, with the extension see srtp_suite; empty: plain RTP is received) and the trailer
    /// of packets. A stream is keyed when its SSRC is taken; one that is already followed, and was not keyed, at once.
    void set_keys(str const& material, srtp_trailer const& packet_trailer);
    /// Keys the stream that is being received, if there is a key.
    void key();
    bool is_protected() const { return !key_material.empty(); }

    /// One RTP packet of at least rtp_header::fixed_bytes that arrived at `now`.
    result receive(str const& packet, position play, std::uint32_t now);
    /// Whether compound packets are checked, so that one that unprotect_rtcp() refuses is not to be looked at.
    bool checks_rtcp() const { return checking && is_protected(); }
    /// A compound packet decrypted under the keys of this direction; false: it is not encrypted, or fails the check.
    bool unprotect_rtcp(str const& compound, str& plain) {
        return checking ? checked.unprotect_rtcp(compound, plain) : srtcp_unprotect(srtp_rx, compound, plain, trailer);
    }

    /// SSRC followed, 4 bytes; empty before the first packet.
    str const& get_ssrc() const { return ssrc; }
    /// Packets accepted.
    std::uint32_t get_packets() const { return packets; }
    /// Highest extended sequence number accepted from the SSRC followed, 0 before the first (RFC 3550 section 6.4.1).
    std::uint32_t get_highest_sequence() const { return highest_sequence; }
    /// The same and more of the SSRC followed, by the book.
    source_statistics const& get_statistics() const { return statistics; }
    /// Codec of the newest packet that was no telephone event; -1 before the first.
    int get_codec() const { return newest_codec; }

private:
    int codec_of(int payload_type) const;
    bool take(str const& packet, rtp_header const& header, position play, std::uint32_t now, result& out);
    bool take_checked(str const& packet, rtp_header const& header, position const& play, std::uint32_t now,
                      result& out);
    void note_verified(result& out);
    bool follow(rtp_header const& header, position const& play, std::uint32_t now, stream& change);
    void take_ssrc(str const& new_ssrc);
    std::uint32_t const* get_verified_roc() const;
    bool unprotect(str const& packet, rtp_header const& header, result& out);
    bool steps_back(std::uint32_t sequence, position const& play, std::uint32_t now) const;
    void count(result const& accepted, std::uint32_t now);

    str payload_map;
    str ssrc;
    std::uint32_t packets = 0;
    bool any_accepted = false;  ///< from the SSRC followed
    std::uint32_t highest_sequence = 0;
    source_statistics statistics;
    int newest_codec = -1;
    std::uint32_t last_arrival = 0;  ///< of an accepted packet

    str key_material;  ///< master key, then master salt
    srtp_trailer trailer{0, str()};
    bool checking = extensions.srtp;
    bool takes_noise = extensions.playout;
    srtp_ctx srtp_rx;       ///< unless checking
    srtp_receiver checked;  ///< if checking
    int mac_failures = 0;
    bool verified = false;  ///< a packet with a right tag came since the keys were set

    /// SSRC and rollover counter of the newest packet whose tag was right, whatever key and stream came since. A forged
    /// packet, or a new key in mid-call, sets the context's counter to 0; the right sender goes on from this one.
    str verified_ssrc;
    std::uint32_t verified_roc = 0;
};
