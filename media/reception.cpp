#include "media/reception.h"

#include "codecs/codec.h"
#include "lib/renew.h"
#include "lib/wire.h"
#include "media/rtp_sequence.h"

namespace {

constexpr std::uint32_t stream_alive = 800;       // 100 ms: another SSRC can't take over yet
constexpr std::uint32_t step_back_window = 4000;  // 500 ms: a sender that restarts its numbers is followed
constexpr int first_unaccepted_codec = 128;       // values of the payload-type map that stand for "none"

/// Whether sequence number a comes after b, 32 bits, wrapping.
bool is_after(std::uint32_t a, std::uint32_t b) {
    return static_cast<std::int32_t>(a - b) > 0;
}

}  // namespace

void reception::set_keys(str const& material, srtp_trailer const& packet_trailer) {
    key_material = material;
    trailer = packet_trailer;
    verified = false;
    if (checking)
        checked.set_keys(material, packet_trailer);
    else if (!is_protected())
        renew(srtp_rx);
    else if (!ssrc.empty() && !srtp_rx.initialised)
        key();
}

void reception::key() {
    if (is_protected() && !checking)
        srtp_key(srtp_rx, key_material, str::null);
}

/// Below 0: not accepted.
int reception::codec_of(int payload_type) const {
    constexpr int comfort_noise_type = 13;  // RFC 3551 section 6
    if (payload_type < payload_map.length() && payload_map[payload_type] < first_unaccepted_codec)
        return payload_map[payload_type];
    return takes_noise && payload_type == comfort_noise_type ? codec::comfort_noise : -1;
}

reception::result reception::receive(str const& packet, position play, std::uint32_t now) {
    result out;
    rtp_header const header = rtp_header::parse(packet);
    out.codec = codec_of(header.payload_type);
    if (out.codec < 0)
        return out;
    out.timestamp = header.timestamp;
    out.marker = header.marker;
    if (checking && is_protected() ? !take_checked(packet, header, play, now, out)
                                   : !take(packet, header, play, now, out))
        return out;
    count(out, now);
    out.accepted = true;
    return out;
}

bool reception::take(str const& packet, rtp_header const& header, position play, std::uint32_t now, result& out) {
    if (!follow(header, play, now, out.change))
        return false;
    if (out.change == stream::taken_over)
        play.playing = false;
    out.sequence = extend_sequence(header.sequence, play.last_played);
    if (is_protected())
        return unprotect(packet, header, out);
    out.payload = packet.substr(header.bytes);
    out.steps_back = steps_back(out.sequence, play, now);
    return true;
}

bool reception::take_checked(str const& packet, rtp_header const& header, position const& play, std::uint32_t now,
                             result& out) {
    out.sequence = header.sequence;
    if (!checked.unprotect(packet, header.bytes, out.sequence, out.payload)) {
        out.dropped_for_tag = ++mac_failures;
        return false;
    }
    if (!follow(header, play, now, out.change))
        return false;
    if (checked.authenticates())
        note_verified(out);
    return true;
}

void reception::note_verified(result& out) {
    out.first_verified = !verified;
    verified = true;
}

/// Decides whose stream is received. False: the packet competes with a stream that is alive.
bool reception::follow(rtp_header const& header, position const& play, std::uint32_t now, stream& change) {
    if (ssrc.length() == header.ssrc.length() && wire::get32(ssrc.cbuffer()) == wire::get32(header.ssrc.cbuffer()))
        return true;
    if (!ssrc.empty() && play.playing && now - last_arrival < stream_alive)
        return false;
    change = ssrc.empty() ? stream::first : stream::taken_over;
    take_ssrc(header.ssrc);
    return true;
}

/// A new stream starts with fresh keys.
void reception::take_ssrc(str const& new_ssrc) {
    ssrc = new_ssrc;
    any_accepted = false;
    highest_sequence = 0;
    statistics = source_statistics();
    key();
}

/// Null: none of the stream that is followed.
std::uint32_t const* reception::get_verified_roc() const {
    return !verified_ssrc.empty() && verified_ssrc == ssrc ? &verified_roc : nullptr;
}

/// Checks and decrypts; the sequence number gets the rollover counter that the tag proved. False: wrong tag.
bool reception::unprotect(str const& packet, rtp_header const& header, result& out) {
    if (!srtp_unprotect(srtp_rx, packet, header.bytes, out.sequence, out.payload, trailer, get_verified_roc())) {
        out.dropped_for_tag = ++mac_failures;
        return false;
    }
    if (trailer.tag_length > 0) {
        note_verified(out);
        verified_ssrc = ssrc;
        verified_roc = srtp_rx.roc;
    }
    return true;
}

/// Whether the sender of a live stream stepped its numbers back; else they would be discarded.
bool reception::steps_back(std::uint32_t sequence, position const& play, std::uint32_t now) const {
    return sequence != 0 && sequence <= play.last_played && play.playing && now - last_arrival < step_back_window;
}

void reception::count(result const& accepted, std::uint32_t now) {
    packets++;
    if (!any_accepted || is_after(accepted.sequence, highest_sequence))
        highest_sequence = accepted.sequence;
    statistics.add(static_cast<std::uint16_t>(accepted.sequence), accepted.timestamp, now);
    if (accepted.codec != codec::telephone_event && accepted.codec != codec::comfort_noise)
        newest_codec = accepted.codec;
    any_accepted = true;
    last_arrival = now;
}
