#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

struct sdp_media;

namespace fxsphone {

/// Whether a telephone's media are protected by SRTP (RFC 3711) with keys from SDP (RFC 4568).
enum class srtp_use {
    off,
    optional,  ///< where the far end does it, too: offered with the profile RTP/AVP, which those who know no keys
               ///< ignore
    required,  ///< no call otherwise: offered with RTP/SAVP
};

/// 16 bytes of master key and 14 of master salt.
using srtp_key = std::array<std::uint8_t, 30>;

/// What the media command needs.
struct srtp_plan {
    srtp_key receive;
    srtp_key send;
    int tag_bytes;  ///< of SRTP: 10 or 4. That of SRTCP always has 10

    bool operator==(srtp_plan const&) const = default;
};

/// The crypto attributes of one media stream: AES_CM_128_HMAC_SHA1_80 and _32, one master key, no identifier of it. Our
/// keys are drawn once and stay through the call's further offers, so that no stream begins anew (RFC 4568
/// section 7.1.4).
class media_security {
public:
    explicit media_security(srtp_use wanted);

    /// The profile to offer, and the one to accept beside it; nullptr: none.
    char const* profile() const;
    char const* other_profile() const;

    /// Writes our attributes into the offer or answer that is made next.
    void write(sdp_media* stream, bool is_offer) const;
    /// After an offer or answer was decoded. false: it can't be taken for want of keys.
    bool read(sdp_media const* stream, bool is_offer);

    /// nullopt: plain RTP.
    std::optional<srtp_plan> plan() const;

private:
    static constexpr std::size_t suites = 2;
    struct agreement {
        std::size_t suite;
        std::string tag;
        srtp_key far;
    };

    std::optional<agreement> understood(std::string const& attribute, bool is_offer) const;
    void write_one(sdp_media* stream, std::string const& tag, std::size_t suite) const;

    srtp_use use;
    std::array<srtp_key, suites> own = {};
    std::optional<agreement> agreed;
};

/// The text of a message with its master keys taken out, for the eyes of people.
std::string without_keys(std::string const& message);

}  // namespace fxsphone
