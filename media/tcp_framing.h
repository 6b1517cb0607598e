#pragma once

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

/// What the front of a piece of the stream turned out to be.
struct tcp_unit {
    enum class kind {
        bare,        ///< no frame; `data` is the whole piece
        packet,      ///< `data` is the packet out of a frame; what followed the frame is dropped
        control,     ///< `data` is a TURN data unit or a framed STUN or TURN message with its frame
        incomplete,  ///< the frame or unit has not arrived whole
    };
    kind what = kind::bare;
    str data;
    str rest;  ///< behind a control unit
};

/// Looks at the front of what a connection delivered.
tcp_unit parse_tcp_unit(str const& piece);
