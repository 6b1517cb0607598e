#include "media/notifications.h"

#include "lib/link.h"
#include "lib/tlv.h"

namespace {

// messages
constexpr int tag_rtcp_copy = 14;
constexpr int tag_tunnel = 15;
constexpr int tag_zrtp = 23;
constexpr int tag_new_ssrc = 24;
constexpr int tag_srtp_verified = 27;
constexpr int tag_playback_empty = 28;
// their elements
constexpr int tag_channel = 4;
constexpr int tag_address = 5;
constexpr int tag_packet_received = 9;
constexpr int tag_packet_sent = 10;
constexpr int tag_packet = 13;
constexpr int tag_rtcp_packet = 14;
constexpr int tag_call_id = 22;
constexpr int tag_ssrc = 32;
constexpr int tag_over_tcp = 34;

str channel_and_sender(int channel, ip_port const& from) {
    return cmd_get_tlv_short(tag_channel, channel) + cmd_get_tlv_address(tag_address, from);
}

}  // namespace

void notify::zrtp(int channel, ip_port const& from, str const& packet) {
    send_command(
        cmd_get_tlv_str(tag_zrtp, channel_and_sender(channel, from) + cmd_get_tlv_str(tag_packet, packet)));
}

void notify::new_ssrc(int channel, ip_port const& from, str const& ssrc) {
    send_command(
        cmd_get_tlv_str(tag_new_ssrc, channel_and_sender(channel, from) + cmd_get_tlv_str(tag_ssrc, ssrc)));
}

void notify::srtp_verified(int channel) {
    send_command(cmd_get_tlv_str(tag_srtp_verified, cmd_get_tlv_short(tag_channel, channel)));
}

void notify::playback_empty(int channel) {
    send_command(cmd_get_tlv_str(tag_playback_empty, cmd_get_tlv_short(tag_channel, channel)));
}

void notify::stun_on_rtcp(int channel, ip_port const& from, str const& packet) {
    send_command(cmd_get_tlv_str(
        tag_tunnel, channel_and_sender(channel, from) + cmd_get_tlv_str(tag_rtcp_packet, packet)));
}

void notify::rtcp_copy(int channel, str const& call_id, str const& packet, bool received) {
    int const tag = received ? tag_packet_received : tag_packet_sent;
    send_command(cmd_get_tlv_str(tag_rtcp_copy, cmd_get_tlv_short(tag_channel, channel) +
                                                    cmd_get_tlv_str(tag_call_id, call_id) +
                                                    cmd_get_tlv_str(tag, packet)));
}

void send_command_tunnel_rtp(int channel, ip_port const& from, str const& data, bool tcp, int tag) {
    send_command(cmd_get_tlv_str(tag_tunnel, channel_and_sender(channel, from) + cmd_get_tlv_str(tag, data) +
                                                 cmd_get_tlv_short(tag_over_tcp, tcp)));
}
