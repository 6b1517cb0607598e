#include "media/notifications.h"

#include "lib/datagram.h"
#include "lib/protocol.h"
#include "lib/tlv.h"

namespace {

str channel_and_sender(int channel, ip_port const& from) {
    return cmd_get_tlv_short(protocol::call_field, channel) + cmd_get_tlv_address(protocol::report_tunnel::from, from);
}

}  // namespace

void notify::zrtp(int channel, ip_port const& from, str const& packet) {
    namespace report = protocol::report_zrtp;
    send_command(
        cmd_get_tlv_str(report::tag, channel_and_sender(channel, from) + cmd_get_tlv_str(report::packet, packet)));
}

void notify::new_ssrc(int channel, ip_port const& from, str const& ssrc) {
    namespace report = protocol::report_new_ssrc;
    send_command(cmd_get_tlv_str(report::tag, channel_and_sender(channel, from) + cmd_get_tlv_str(report::ssrc, ssrc)));
}

void notify::srtp_verified(int channel) {
    send_command(
        cmd_get_tlv_str(protocol::report_srtp_verified::tag, cmd_get_tlv_short(protocol::call_field, channel)));
}

void notify::playback_empty(int channel) {
    send_command(
        cmd_get_tlv_str(protocol::report_playback_empty::tag, cmd_get_tlv_short(protocol::call_field, channel)));
}

void notify::stun_on_rtcp(int channel, ip_port const& from, str const& packet) {
    namespace report = protocol::report_tunnel;
    send_command(
        cmd_get_tlv_str(report::tag, channel_and_sender(channel, from) + cmd_get_tlv_str(report::rtcp_data, packet)));
}

void notify::rtcp_copy(int channel, str const& call_id, str const& packet, bool received) {
    namespace report = protocol::report_rtcp;
    int const side = received ? report::received : report::sent;
    send_command(cmd_get_tlv_str(report::tag, cmd_get_tlv_short(report::call, channel) +
                                                  cmd_get_tlv_str(report::call_id, call_id) +
                                                  cmd_get_tlv_str(side, packet)));
}

void send_command_tunnel_rtp(int channel, ip_port const& from, str const& data, bool tcp, int tag) {
    namespace report = protocol::report_tunnel;
    send_command(cmd_get_tlv_str(report::tag, channel_and_sender(channel, from) + cmd_get_tlv_str(tag, data) +
                                                  cmd_get_tlv_short(report::tcp, tcp)));
}
