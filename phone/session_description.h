#pragma once

#include <fxsmedia/values.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "phone/media_security.h"

struct mbuf;
struct sdp_session;
struct sdp_media;

namespace fxsphone {

/// What SDP offers and answers of a call come down to: the fields of the media command.
struct media_plan {
    fxsmedia::codec_choice send;
    std::vector<fxsmedia::codec_choice> map;  ///< what is received
    std::optional<int>
        event_pt;       ///< telephone events (RFC 4733), the same number both ways; the far end takes all keys
    int ptime_ms = 20;  ///< of the packets that are sent
    std::optional<fxsmedia::endpoint> rtp;   ///< nullopt: nothing is sent, the far end holds the call
    std::optional<fxsmedia::endpoint> rtcp;  ///< RTCP goes on while nothing is sent
    std::optional<srtp_plan> srtp;           ///< nullopt: plain RTP
    std::string xr;  ///< extended report blocks that the far end wants, as the media command names them

    bool operator==(media_plan const&) const = default;
};

/// One leg's side of offer and answer (RFC 3264): one audio stream, the codecs in the order of preference. libre does
/// the parsing and the matching.
class session_description {
public:
    /// `codecs` have the names of protocol::codec_formats: pcmu, pcma, g729, gsm, g722, g726.
    session_description(std::string const& local_ip, std::vector<std::string> const& codecs, int ptime_ms,
                        srtp_use protection = srtp_use::off);
    ~session_description();
    session_description(session_description const&) = delete;

    /// Before the first offer() or answer(): where media is received, RTCP on the port above.
    void set_port(int rtp_port);
    /// After set_port(): how RTP and, when that is known, RTCP look from outside. Of another family than the local
    /// address they change nothing.
    void set_outside(fxsmedia::endpoint const& rtp, std::optional<fxsmedia::endpoint> const& rtcp);

    /// Before the first offer() or answer(): RTCP XR blocks that may be sent, of those that knows_xr().
    void set_xr(std::vector<std::string> const& blocks) { xr_blocks = blocks; }
    /// A block of RFC 3611 section 5.1 by its name, such as "rcvr-rtt", that the process can send.
    static bool knows_xr(std::string_view block);

    /// Of the names that the process knows, one that SDP can carry.
    static bool knows(std::string_view codec);

    /// A new buffer, which the caller gives back with mem_deref(); nullptr without memory. On hold the far end may not
    /// send (RFC 3264 section 8.4).
    mbuf* offer(bool on_hold = false);
    /// The answer to what read_offer() took; on hold as in an offer.
    mbuf* answer(bool on_hold = false);
    /// The far end's. false: not SDP, or nothing in common, or not protected as it must be. The buffer's position
    /// moves.
    bool read_offer(mbuf* text);
    /// Likewise, to our last offer().
    bool read_answer(mbuf* text);

    /// After an answer was read or made; nullopt when no codec is left.
    std::optional<media_plan> plan() const;
    /// Of the codec that is sent, as the configuration names it; empty before plan() has one.
    std::string codec_name() const;

private:
    mbuf* encode(bool is_offer);
    bool decode(mbuf* text, bool is_offer);
    void write_xr(bool is_offer);
    std::string wanted_xr() const;

    sdp_session* session = nullptr;
    sdp_media* audio = nullptr;
    media_security security;
    int family = 0;  ///< of the local address
    int local_ptime_ms;
    std::vector<std::string> xr_blocks;
};

}  // namespace fxsphone
