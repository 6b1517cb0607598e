#include "control/commands.h"

#include <iterator>

#include "control/call_led.h"
#include "control/command_fields.h"
#include "control/driver.h"
#include "control/loopback_test.h"
#include "control/media_command.h"
#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/sockets.h"
#include "media/channel.h"
#include "media/ntp.h"

static_assert(protocol::call_count == channel_count && protocol::slot_count == devmgr_count);

namespace {

/// The channel of the call that a command names; null when there is none.
channel* called(command_fields const& fields) {
    int const call = fields.number(protocol::call_field);
    return channels.valid(call) ? &channels[call] : nullptr;
}

/// How log lines count calls.
int shown_call(command_fields const& fields) {
    return fields.number(protocol::call_field) + 1;
}

void cmd_end(command_fields const& fields, ip_port const&) {
    if (channel* const call = called(fields))
        call->init();
    else
        log_line(1, "INVALID call index in CMD_END");
}

void cmd_log_level(command_fields const& fields, ip_port const&) {
    fields.each(protocol::cmd_log_level::level, [](str const& value) { log_set_level(str2int16(value)); });
}

void cmd_signal(command_fields const& fields, ip_port const&) {
    fields.each(protocol::cmd_signal::data, sigchan_send);
}

void cmd_dtmf(command_fields const& fields, ip_port const&) {
    if (channel* const call = called(fields))
        call->send_dtmf(fields.number(protocol::cmd_dtmf::digit));
}

void cmd_reset_base(command_fields const& fields, ip_port const&) {
    reset_base(fields.number(protocol::cmd_reset_base::command));
}

void cmd_playback(command_fields const& fields, ip_port const&) {
    channel* const call = called(fields);
    if (call == nullptr) {
        log_line(0, "No playback channel found");
        return;
    }
    int const shown = shown_call(fields);
    if (call->set_playback(fields.number(protocol::cmd_playback::tone_set),
                           fields.number(protocol::cmd_playback::tone_kind))) {
        log_line(7, "Playback on channel %d", arg_int(shown));
        return;
    }
    log_line(7, "Clear playback on channel %d", arg_int(shown));
    call->tx_clear();
}

void cmd_ntp_offset(command_fields const& fields, ip_port const&) {
    fields.each(protocol::cmd_ntp_offset::seconds, [](str const& value) { ntp_timediff = str2uint32(value); });
}

void cmd_tunnel(command_fields const& fields, ip_port const&) {
    channel* const call = called(fields);
    if (call == nullptr)
        return;
    ip_port const dest = fields.endpoint(protocol::cmd_tunnel::to);
    str const rtp = fields.bytes(protocol::cmd_tunnel::rtp_data);
    str const rtcp = fields.bytes(protocol::cmd_tunnel::rtcp_data);
    bool const tcp = fields.number(protocol::cmd_tunnel::tcp) != 0;
    if (!rtp.empty())
        call->tunnel_rtp(dest, rtp, tcp);
    else if (!rtcp.empty())
        call->tunnel_rtcp(dest, rtcp, tcp);
}

void report_ports(int call, int rtp_port, int rtcp_port) {
    namespace reply = protocol::report_open;
    log_line(7, "Open RTP port %d and RTCP port %d", arg_int(rtp_port), arg_int(rtcp_port));
    send_command(cmd_get_tlv_str(reply::tag, cmd_get_tlv_short(reply::call, call) +
                                                 cmd_get_tlv_short(reply::rtp_port, rtp_port) +
                                                 cmd_get_tlv_short(reply::rtcp_port, rtcp_port)));
}

void cmd_open(command_fields const& fields, ip_port const&) {
    int const index = fields.number(protocol::call_field);
    channel* const call = called(fields);
    if (call == nullptr) {
        log_line(1, "Illegal port %d", arg_int(index));
        return;
    }
    call->open(fields.number(protocol::cmd_open::port_min), fields.number(protocol::cmd_open::port_max),
               fields.number(protocol::cmd_open::tos));
    call->set_call_id(fields.bytes(protocol::cmd_open::call_id));
    report_ports(index, call->get_rtp_port(), call->get_rtcp_port());
}

void cmd_tdm_channel(command_fields const& fields, ip_port const&) {
    channel* const call = called(fields);
    if (call == nullptr)
        return;
    int const slot = fields.number(protocol::cmd_tdm_channel::slot);
    int const shown = shown_call(fields);
    if (slot >= protocol::no_slot) {
        call->reset_tdm_channel();
        log_line(7, "Reset channel for call %d", arg_int(shown));
        return;
    }
    call->set_tdm_channel(slot);
    log_line(7, "Set channel %d for call %d", arg_int(slot + 1), arg_int(shown));
}

void cmd_session(command_fields const&, ip_port const& source) {
    if (log_check_condition(5)) {
        str const sender = utils::readable_ip(source);
        log_line(5, "Start session %s", arg_str(sender));
    }
    control_adr = source;
    send_command(cmd_get_tlv_str(protocol::report_heartbeat::tag, str::null));
}

/// Composes a description of all channels, which goes nowhere: the command is kept for a debugger's sake.
void cmd_dump(command_fields const&, ip_port const&) {
    str text("Channels: ");
    for (int i = 0; channels.valid(i); i++)
        text += channels[i].dumptext();
}

void cmd_loopback_test(command_fields const&, ip_port const&) {
    namespace reply = protocol::report_loopback_test;
    send_command(cmd_get_tlv_str(reply::tag, cmd_get_tlv_short(reply::found, loopback_test())));
}

/// The first pattern given counts.
void cmd_led(command_fields const& fields, ip_port const&) {
    set_led1(fields.first_number(protocol::cmd_led::pattern));
}

struct command {
    int tag;
    void (*carry_out)(command_fields const& fields, ip_port const& source);
};
constexpr command commands[] = {
    {protocol::cmd_end::tag, cmd_end},
    {protocol::cmd_log_level::tag, cmd_log_level},
    {protocol::cmd_signal::tag, cmd_signal},
    {protocol::cmd_dtmf::tag, cmd_dtmf},
    {protocol::cmd_reset_base::tag, cmd_reset_base},
    {protocol::cmd_playback::tag, cmd_playback},
    {protocol::cmd_ntp_offset::tag, cmd_ntp_offset},
    {protocol::cmd_tunnel::tag, cmd_tunnel},
    {protocol::cmd_open::tag, cmd_open},
    {protocol::cmd_media::tag, cmd_media},
    {protocol::cmd_tdm_channel::tag, cmd_tdm_channel},
    {protocol::cmd_session::tag, cmd_session},
    {protocol::cmd_dump::tag, cmd_dump},
    {protocol::cmd_loopback_test::tag, cmd_loopback_test},
    {protocol::cmd_led::tag, cmd_led},
};
static_assert(std::size(commands) == std::size(protocol::command_formats));

bool from_control_peer(ip_port const& source) {
    if (source == control_adr)
        return true;
    if (log_check_condition(8)) {
        str const peer = utils::readable_ip(control_adr);
        str const sender = utils::readable_ip(source);
        log_line(8, "Discard command for %s from source %s", arg_str(peer), arg_str(sender));
    }
    return false;
}

}  // namespace

void on_command(str const& data, ip_port const& source) {
    static str stream;
    stream += data;
    stream.keep_secret();  // commands carry keys
    tlv message;
    while (message.take(stream))
        dispatch_command(message.tag, message.value, source);
}

void dispatch_command(int tag, str const& value, ip_port const& source) {
    if (tag != protocol::cmd_session::tag && !from_control_peer(source))
        return;
    if (utils::is_own_address(command_fd, source))
        return;
    for (command const& known : commands)
        if (known.tag == tag)
            known.carry_out(command_fields(value), source);
}
