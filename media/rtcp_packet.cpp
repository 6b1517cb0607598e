#include "media/rtcp_packet.h"

#include <algorithm>

#include "lib/bytes.h"

namespace {

constexpr unsigned char version_2_count_1 = 0x81;
constexpr unsigned char padding_bit = 0x20;
constexpr char cname_text[] = "VELK";

str big_endian(std::uint32_t value) {
    return utils::int2str(value, 4);
}

str packet_start(int type, str const& ssrc) {
    return str(version_2_count_1, static_cast<unsigned char>(type), 0, 0) + ssrc;
}

/// Writes the length field: the packet's 32-bit words, the last one counted whole, minus one.
str with_length_field(str const& packet) {
    int const words_minus_one = (packet.length() + 3) / 4 - 1;
    str out = packet;
    out.set_character(2, static_cast<unsigned char>(words_minus_one >> 8));
    out.set_character(3, static_cast<unsigned char>(words_minus_one));
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
    str packet = packet_start(packet_type::sender_report, ssrc);
    packet += big_endian(sent.seconds) + big_endian(sent.fraction) + big_endian(rtp_timestamp) +
              big_endian(packets) + big_endian(octets);
    if (!received.ssrc.empty()) {
        packet += received.ssrc;
        packet += received.fraction_lost;
        packet += utils::int2str(static_cast<unsigned>(received.lost), 3) +
                  big_endian(received.highest_sequence) + big_endian(received.jitter);
    }
    if (last_sr.empty())
        packet += str('\0', 8);
    else
        packet += big_endian(str2uint32(last_sr)) + big_endian(delay_since_last_sr);
    return packet;
}

str rtcp::source_description(str const& ssrc) {
    str const text(cname_text);
    str packet = packet_start(packet_type::source_description, ssrc);
    packet += str(static_cast<unsigned char>(cname_item), static_cast<unsigned char>(text.length())) + text;
    packet += str::x_00;  // end of items
    return get_sdes_packet(packet);
}

str rtcp::bye(str const& ssrc, str const& reason) {
    str packet = packet_start(packet_type::bye, ssrc);
    packet += static_cast<unsigned char>(reason.length());
    return get_rtcp_packet(packet + reason);
}

unsigned char rtcp::fraction_lost(int lost, int received) {
    int const expected = lost + received;
    return expected < 1 ? 0 : static_cast<unsigned char>(std::min(lost * 256LL / expected, 255LL));
}
