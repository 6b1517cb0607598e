#pragma once

#include <cstdint>

#include "lib/rtcp_numbers.h"
#include "lib/str.h"
#include "media/ntp.h"

/// RTCP packets as bytes (RFC 3550 section 6). Every packet starts with
///
///     byte 0     version 2 (bits 7-6), padding (5), count (4-0)
///     byte 1     packet type
///     2-3        length in 32-bit words minus one
///
/// and several of them back to back make up a compound packet.
namespace rtcp {

/// Bytes of a sender report in front of its first report block.
constexpr int sender_info_bytes = 28;

/// Sets the length field and, when the packet is no multiple of 4 bytes, appends padding (its last byte counts it)
/// and sets the padding bit. An empty packet stays empty, any other has at least its first 4 bytes.
str get_rtcp_packet(str const& packet);
/// The same for SDES packets, which are filled up with zero bytes and never carry the padding bit.
str get_sdes_packet(str const& packet);

/// What a report block (RFC 3550 section 6.4.1) says of the stream being received.
struct report_block {
    str ssrc;  ///< 4 bytes; empty: no block
    unsigned char fraction_lost = 0;
    int lost = 0;                        ///< its low 24 bits are sent
    std::uint32_t highest_sequence = 0;  ///< extended
    std::uint32_t jitter = 0;            ///< RTP timestamp units
};

/// A sender report. LSR and DLSR are written whether or not a block goes before them, so the packet has 52 bytes
/// with a block and 36 without; the count in the first byte is 1 either way.
struct sender_report {
    str ssrc;  ///< 4 bytes
    ntp_time sent;
    std::uint32_t rtp_timestamp;
    std::uint32_t packets;
    std::uint32_t octets;
    report_block received;
    str last_sr;  ///< middle 32 bits of the NTP time of the peer's last report, as far as they came; empty: none
    std::uint32_t delay_since_last_sr = 0;  ///< 1/65536 s

    /// Not yet padded, length field zero.
    str build() const;
    /// The same as RFC 3550 sections 6.4.1 and 6.4.2 have it: a receiver report of one that does not send; the count is
    /// that of the blocks, and LSR and DLSR belong to the block.
    str build_exact(bool sends) const;
};

/// An SDES packet with the CNAME item that every channel of the process uses; finished.
str source_description(str const& ssrc);
/// A BYE packet with a reason; finished.
str bye(str const& ssrc, str const& reason);
/// Lost packets as a share of the expected ones in 1/256, at most 255 (RFC 3550 section 6.4.1).
unsigned char fraction_lost(int lost, int received);

/// Calls `act(int type, str const& packet)` for each packet of a compound; a last one that claims more bytes than
/// there are is given as far as it goes.
template <typename action>
void for_each_packet(str const& compound, action const& act) {
    int at = 0;
    while (at < compound.length() - 4) {
        int const size = str2int16(compound.substr(at + 2, 2)) * 4 + 4;
        str const packet = compound.substr(at, size);
        at += size;
        act(static_cast<int>(packet[1]), packet);
    }
}

}  // namespace rtcp
