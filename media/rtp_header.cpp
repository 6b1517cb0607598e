#include "media/rtp_header.h"

#include "lib/wire.h"

namespace {

constexpr unsigned char version_2 = 0x80;
constexpr unsigned char extension_bit = 0x10;
constexpr unsigned char csrc_count_mask = 0x0F;
constexpr unsigned char marker_bit = 0x80;

int header_length(str const& packet) {
    int const fixed = rtp_header::fixed_bytes + 4 * (packet[0] & csrc_count_mask);
    if ((packet[0] & extension_bit) == 0)
        return fixed;
    return fixed + 4 + 4 * str2int16(packet.substr(fixed + 2, 2));
}

}  // namespace

rtp_header rtp_header::parse(str const& packet) {
    rtp_header header;
    unsigned char const* const in = packet.cbuffer();
    header.marker = (in[1] & marker_bit) != 0;
    header.payload_type = in[1] & ~marker_bit;
    header.sequence = wire::get16(in + 2);
    header.timestamp = wire::get32(in + 4);
    header.ssrc = packet.substr(8, 4);
    header.bytes = header_length(packet);
    return header;
}

str rtp_header::build(str payload) const {
    payload.writable_front(fixed_bytes);
    unsigned char* const out = payload.buffer();
    out[0] = version_2;
    out[1] = static_cast<unsigned char>(payload_type | (marker ? marker_bit : 0));
    wire::put16(out + 2, sequence);
    wire::put32(out + 4, timestamp);
    wire::put32(out + 8, str2uint32(ssrc));
    return payload;
}
