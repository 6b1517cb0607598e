#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// The control protocol's receiving side: what call control orders by datagrams of TLV elements (lib/tlv.h).

/// One received datagram. Datagrams form one byte stream, whoever sent them: an element that a datagram leaves
/// incomplete is completed by the bytes of the next one.
void on_command(str const& data, ip_port const& source);

/// Carries one command out, if it comes from the control peer or is the session command, which makes its sender
/// the control peer. Unknown tags are ignored.
///
/// A process whose peer is its own control socket receives what it reports: heartbeats are session commands, and other
/// reports have the tags of commands too. Obeyed, one would cause the next for ever, so whatever comes from there is
/// dropped without a word.
void dispatch_command(int tag, str const& value, ip_port const& source);
