#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// Media on a TCP connection. A packet of n bytes travels as
///
///     0    1    2      4   6
///     0x03 0x00 n + 2  n   the packet, protected as on UDP
///
/// (both lengths 16-bit big-endian). The same connection carries what call control handles itself: STUN and TURN
/// messages in such frames, TURN data units (first byte 2) and TLS records.

/// The frame around a packet.
str frame_for_tcp(str const& packet);

/// Looks at the front of what a connection delivered. True when nothing is left to do with the front: a TURN data
/// unit or a framed STUN or TURN message was handed to call control (under sub-tag `tag`) and taken off `data`, or
/// the frame is not complete. False when `data` now is the bare packet out of a frame (what followed the frame is
/// dropped), or is no frame and unchanged.
bool process_tcp_header(str& data, int channel, ip_port const& from, int tag);

/// Whether bare data is an RTCP packet by its type (RFC 3550 section 12.1: SR, RR, SDES, BYE, APP).
bool process_tcp_rtcp(str const& data);
