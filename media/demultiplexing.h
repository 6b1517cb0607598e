#pragma once

#include "lib/rtcp_numbers.h"
#include "lib/str.h"

/// What shares the media ports, told apart by the first bytes (RFC 7983 section 7 has the idea).
namespace demultiplexing {

/// ZRTP (RFC 6189 section 5): first nibble 1, magic cookie "ZRTP" where RTP has its timestamp.
inline bool is_zrtp(str const& data) {
    return (data[0] & 0xF0) == 0x10 && data.substr(4, 4) == "ZRTP";
}
/// STUN (RFC 5389 section 6): the two top bits of the message type are clear; of the types those below 0x0200.
inline bool is_stun(str const& data) {
    return data[0] <= 1;
}
/// A TLS record of a handshake (RFC 8446 section 5.1).
inline bool is_tls(str const& data) {
    return data[0] == 0x16;
}

}  // namespace demultiplexing

/// Whether bare data is an RTCP packet by its type (RFC 3550 section 12.1: SR, RR, SDES, BYE, APP).
inline bool process_tcp_rtcp(str const& data) {
    return data[1] >= rtcp::packet_type::sender_report && data[1] <= rtcp::packet_type::application;
}
