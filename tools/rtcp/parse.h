// RTCP packets out of bytes. Takes anything: what does not fit becomes a packet with `problem` set and its bytes kept,
// so that nothing that was on the wire is lost to the reader.
#pragma once

#include <vector>

#include "tools/rtcp/packet.h"

namespace rtcp_view {

// The packets of a compound (RFC 3550 section 6.1), in order; none for no bytes. Padding is taken off. The walk goes
// by the length fields and ends where no header of version 2 follows.
std::vector<packet> parse_compound(protocol::byte_view data);

// The blocks behind the SSRC of an extended report. What is left over comes as a last block of type 0.
std::vector<xr_block> parse_xr_blocks(protocol::byte_view data);

// Whether the bytes look like SRTCP (RFC 3711 section 3.4): only the first header can be read, the packets behind it
// don't chain, and there is room for index and tag. A damaged plain compound is told apart by its second header; one
// encrypted packet in a hundred looks as if it had one, and is then known by its index.
bool looks_encrypted(protocol::byte_view data);

}  // namespace rtcp_view
