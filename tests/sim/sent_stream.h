#pragma once

#include "lib/wire.h"
#include "tests/sim/far_end.h"

namespace sim {

/// What a channel's RTP packets must look like, one after the other, before the network gets them: sequence numbers,
/// timestamps (RFC 3550 section 5.1, RFC 4733 section 2.2), marker, SSRC, payload type and size.
class sent_stream {
public:
    /// From the next packet on. Payloads of the first ones may be of another size: audio collected before.
    void expect(format const& f, int ptime_ms, bool with_events, std::uint32_t wanted_ssrc) {
        sends = &f;
        ptime = ptime_ms;
        has_events = with_events;
        ssrc = wanted_ssrc;
        irregular(2);
    }
    /// Bytes of the tag, 0 without.
    void protect(int tag_bytes) { tag = tag_bytes; }
    /// So many packets may be of another size.
    void irregular(std::int64_t how_many) { odd = std::max(odd, how_many); }
    /// The next packet may have any number and time (packets got lost unseen).
    void forget() { known = counted = false; }

    void packet(std::string_view data);

    /// Whether this many packets were sent; anything goes after forget().
    bool count_is(std::uint32_t n) const { return !counted || n == packets; }
    bool events() const { return has_events; }

private:
    format const* sends = &formats[0];
    int ptime = 20, tag = 0, last_type = 255;
    bool has_events = false, known = false, counted = true;
    std::uint32_t ssrc = 0, packets = 0, next_timestamp = 0, event_timestamp = 0;
    std::uint16_t next = 0;
    std::int64_t odd = 0;
};

inline void sent_stream::packet(std::string_view data) {
    auto const* const header = reinterpret_cast<unsigned char const*>(data.data());
    if (data.size() < 12 || header[0] != 0x80)
        violated("a packet without a plain RTP header", static_cast<long long>(data.size()));
    int const type = header[1] & 0x7F;
    std::uint32_t const timestamp = wire::get32(header + 4);
    bool const event = has_events && type == event_type, audio = type == sends->payload_type;
    std::uint16_t const sequence = wire::get16(header + 2);
    auto const payload = static_cast<int>(data.size()) - 12 - tag;
    if (!event && !audio)
        violated("a packet of another payload type", type);
    if (known && sequence != next)
        violated("a packet out of sequence", sequence);
    if (known && timestamp != (event ? event_timestamp : next_timestamp))
        violated("a packet of another time", timestamp);
    if (known && (header[1] >> 7 != 0) != (type != last_type))
        violated("a marker in the wrong place", type);
    if (wire::get32(header + 8) != ssrc)
        violated("a packet of another source", wire::get32(header + 8));
    if (event ? payload != 4 : payload != sends->bytes_per_20ms * ptime / 20 && odd <= 0)
        violated("a payload of so many bytes", payload);
    if (!known)
        next_timestamp = event_timestamp = timestamp;
    odd--;
    packets++;
    known = true;
    last_type = type;
    next = static_cast<std::uint16_t>(sequence + 1);
    next_timestamp += static_cast<std::uint32_t>(ptime * 8);
    if (audio)
        event_timestamp = next_timestamp;
}

}  // namespace sim
