#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// The messages that a channel sends to call control by itself. Every one is a TLV element (lib/tlv.h) whose
/// value is a sequence of elements, the channel's index first.
namespace notify {

/// A ZRTP message arrived on a media port: sender and whole packet.
void zrtp(int channel, ip_port const& from, str const& packet);
/// A new remote SSRC (4 bytes) is being received from `from`.
void new_ssrc(int channel, ip_port const& from, str const& ssrc);
/// The first SRTP packet with a right authentication tag arrived.
void srtp_verified(int channel);
/// Playback of queued PCM has run empty.
void playback_empty(int channel);
/// STUN arrived on the RTCP port: sender and whole packet.
void stun_on_rtcp(int channel, ip_port const& from, str const& packet);
/// A copy of an RTCP packet: as it arrived, or as it was before it was protected and sent.
void rtcp_copy(int channel, str const& call_id, str const& packet, bool received);

}  // namespace notify

/// Hands up non-media data that arrived on a media port (STUN, TURN, TLS): sender, the data under sub-tag `tag`,
/// and whether it came over TCP.
void send_command_tunnel_rtp(int channel, ip_port const& from, str const& data, bool tcp, int tag);
