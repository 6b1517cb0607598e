#include "media/rtcp_packet.h"

#include <algorithm>

#include "lib/byte_writer.h"
#include "lib/wire.h"

namespace {

constexpr unsigned char version_2_count_1 = 0x81;
constexpr unsigned char padding_bit = 0x20;
constexpr char cname_text[] = "VELK";

/// Up to the sender's SSRC; the length is filled in when the packet is finished.
byte_writer packet_start(int type, str const& ssrc) {
    byte_writer packet;
    packet.put8(version_2_count_1).put8(static_cast<std::uint32_t>(type)).put16(0).put(ssrc);
    return packet;
}

/// Writes the length field: the packet's 32-bit words, the last one counted whole, minus one.
str with_length_field(str const& packet) {
    int const words_minus_one = (packet.length() + 3) / 4 - 1;
    str out = packet;
    out.set_character(3, 0);  // it has 4 bytes at least
    wire::put16(out.buffer() + 2, static_cast<std::uint32_t>(words_minus_one));
    return out;
}

int missing_to_word(int length) {
    return (4 - length % 4) % 4;
}

}  // namespace

str rtcp::get_rtcp_packet(str const& packet) {
    if (packet.empty())
        return packet;
    str out = with_length_field(packet);
    int const pad = missing_to_word(packet.length());
    if (pad == 0)
        return out;
    out += str('\0', pad - 1);
    out += static_cast<unsigned char>(pad);
    out.set_character(0, out[0] | padding_bit);
    return out;
}

str rtcp::get_sdes_packet(str const& packet) {
    if (packet.empty())
        return packet;
    return with_length_field(packet) + str('\0', missing_to_word(packet.length()));
}

str rtcp::sender_report::build() const {
    byte_writer packet = packet_start(packet_type::sender_report, ssrc);
    packet.put32(sent.seconds).put32(sent.fraction).put32(rtp_timestamp).put32(packets).put32(octets);
    if (!received.ssrc.empty()) {
        packet.put(received.ssrc).put8(received.fraction_lost).put24(static_cast<std::uint32_t>(received.lost));
        packet.put32(received.highest_sequence).put32(received.jitter);
    }
    if (last_sr.empty())
        packet.put32(0).put32(0);
    else
        packet.put32(str2uint32(last_sr)).put32(delay_since_last_sr);
    return packet.get();
}

str rtcp::sender_report::build_exact(bool sends) const {
    constexpr unsigned version_2 = 0x80;
    bool const has_block = !received.ssrc.empty();
    byte_writer packet;
    packet.put8(version_2 | static_cast<unsigned>(has_block));
    packet.put8(sends ? packet_type::sender_report : packet_type::receiver_report).put16(0).put(ssrc);
    if (sends)
        packet.put32(sent.seconds).put32(sent.fraction).put32(rtp_timestamp).put32(packets).put32(octets);
    if (has_block) {
        packet.put(received.ssrc).put8(received.fraction_lost).put24(static_cast<std::uint32_t>(received.lost));
        packet.put32(received.highest_sequence).put32(received.jitter);
        packet.put32(str2uint32(last_sr)).put32(last_sr.empty() ? 0 : delay_since_last_sr);
    }
    return packet.get();
}

str rtcp::source_description(str const& ssrc) {
    str const text(cname_text);
    byte_writer packet = packet_start(packet_type::source_description, ssrc);
    packet.put8(cname_item).put8(static_cast<std::uint32_t>(text.length())).put(text).put8(0);  // end of items
    return get_sdes_packet(packet.get());
}

str rtcp::bye(str const& ssrc, str const& reason) {
    byte_writer packet = packet_start(packet_type::bye, ssrc);
    packet.put8(static_cast<std::uint32_t>(reason.length())).put(reason);
    return get_rtcp_packet(packet.get());
}

unsigned char rtcp::fraction_lost(int lost, int received) {
    int const expected = lost + received;
    return expected < 1 ? 0 : static_cast<unsigned char>(std::min(lost * 256LL / expected, 255LL));
}
