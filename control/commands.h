#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// The control protocol's receiving side: what call control orders by datagrams of TLV elements (lib/tlv.h).

/// One received datagram. Datagrams form one byte stream, whoever sent them: an element that a datagram leaves
/// incomplete is completed by the bytes of the next one.
void on_command(str const& data, ip_port const& source);

/// Carries one command out, if it comes from the control peer or is the session command, which makes its sender
/// the control peer. Unknown tags are ignored.
void dispatch_command(int tag, str const& value, ip_port const& source);
