#include "control/commands.h"

#include "control/call_led.h"
#include "control/command_fields.h"
#include "control/driver.h"
#include "control/loopback_test.h"
#include "control/media_command.h"
#include "control/sigchan.h"
#include "lib/link.h"
#include "lib/log_line.h"
#include "media/channel.h"
#include "media/ntp.h"

namespace {

constexpr int tag_open_reply = 6;
constexpr int tag_session = 19;
constexpr int no_slot = 4;
constexpr int field_driver_command = 27;

/// The fields of a command that carries a call index and one 16-bit value.
struct call_fields {
    int call = no_call;
    int value = 0;

    call_fields(str const& command, int value_tag, int default_value = 0) : value(default_value) {
        for_each_field(command, [&](tlv const& field) {
            if (field.tag == field_call)
                call = str2int16(field.value);
            else if (field.tag == value_tag)
                value = str2int16(field.value);
        });
    }
    bool valid() const { return channels.valid(call); }
};

void cmd_end(str const& command, ip_port const&) {
    constexpr int ignored = 21;
    call_fields const fields(command, ignored);
    if (fields.valid())
        channels[fields.call].init();
    else
        log_line(1, "INVALID call index in CMD_END");
}

void cmd_log_level(str const& command, ip_port const&) {
    constexpr int field_level = 1;
    for_each_field(command, [](tlv const& field) {
        if (field.tag == field_level)
            log_set_level(str2int16(field.value));
    });
}

void cmd_signal(str const& command, ip_port const&) {
    constexpr int field_bytes = 15;
    for_each_field(command, [](tlv const& field) {
        if (field.tag == field_bytes)
            sigchan_send(field.value);
    });
}

void cmd_dtmf(str const& command, ip_port const&) {
    constexpr int field_digit = 19;
    call_fields const fields(command, field_digit);
    if (fields.valid())
        channels[fields.call].send_dtmf(fields.value);
}

void cmd_reset_base(str const& command, ip_port const&) {
    int driver_command = 0;
    for_each_field(command, [&](tlv const& field) {
        if (field.tag == field_driver_command)
            driver_command = str2int16(field.value);
    });
    reset_base(driver_command);
}

void cmd_playback(str const& command, ip_port const&) {
    int call = no_call;
    int tone_set = 0;
    int kind = 0;
    for_each_field(command, [&](tlv const& field) {
        switch (field.tag) {
            case field_call: call = str2int16(field.value); break;
            case 28: kind = str2int16(field.value); break;
            case 29: tone_set = str2int16(field.value); break;
            default: break;
        }
    });
    if (!channels.valid(call)) {
        log_line(0, "No playback channel found");
        return;
    }
    int const shown = call + 1;
    if (channels[call].set_playback(tone_set, kind)) {
        log_line(7, "Playback on channel %d", arg_int(shown));
        return;
    }
    log_line(7, "Clear playback on channel %d", arg_int(shown));
    channels[call].tx_clear();
}

void cmd_ntp_offset(str const& command, ip_port const&) {
    constexpr int field_seconds = 20;
    for_each_field(command, [](tlv const& field) {
        if (field.tag == field_seconds)
            ntp_timediff = str2uint32(field.value);
    });
}

void cmd_tunnel(str const& command, ip_port const&) {
    int call = no_call;
    ip_port dest;
    str rtp;
    str rtcp;
    bool tcp = false;
    for_each_field(command, [&](tlv const& field) {
        switch (field.tag) {
            case field_call: call = str2int16(field.value); break;
            case 5: dest = field.get_address(); break;
            case 13: rtp = field.value; break;
            case 14: rtcp = field.value; break;
            case 34: tcp = str2int16(field.value) != 0; break;
            default: break;
        }
    });
    if (!channels.valid(call))
        return;
    if (!rtp.empty())
        channels[call].tunnel_rtp(dest, rtp, tcp);
    else if (!rtcp.empty())
        channels[call].tunnel_rtcp(dest, rtcp, tcp);
}

void cmd_open(str const& command, ip_port const&) {
    int call = no_call;
    int lowest = 49152;   // RFC 6335 section 6: first dynamic port
    int highest = 65536;  // above the last
    int tos = 0xA0;       // precedence 5
    str call_id;
    for_each_field(command, [&](tlv const& field) {
        switch (field.tag) {
            case field_call: call = str2int16(field.value); break;
            case 11: lowest = str2int16(field.value); break;
            case 12: highest = str2int16(field.value); break;
            case 22: call_id = field.value; break;
            case 31: tos = str2int16(field.value); break;
            default: break;
        }
    });
    if (!channels.valid(call)) {
        log_line(1, "Illegal port %d", arg_int(call));
        return;
    }
    channel& opened = channels[call];
    opened.open(lowest, highest, tos);
    opened.set_call_id(call_id);
    int const rtp_port = opened.get_rtp_port();
    int const rtcp_port = opened.get_rtcp_port();
    log_line(7, "Open RTP port %d and RTCP port %d", arg_int(rtp_port), arg_int(rtcp_port));
    send_command(cmd_get_tlv_str(tag_open_reply, cmd_get_tlv_short(field_call, call) +
                                                     cmd_get_tlv_short(13, rtp_port) +
                                                     cmd_get_tlv_short(14, rtcp_port)));
}

void cmd_tdm_channel(str const& command, ip_port const&) {
    constexpr int field_slot = 18;
    call_fields const fields(command, field_slot, no_slot);
    if (!fields.valid())
        return;
    int const shown = fields.call + 1;
    if (fields.value >= no_slot) {
        channels[fields.call].reset_tdm_channel();
        log_line(7, "Reset channel for call %d", arg_int(shown));
        return;
    }
    channels[fields.call].set_tdm_channel(fields.value);
    log_line(7, "Set channel %d for call %d", arg_int(fields.value + 1), arg_int(shown));
}

void cmd_session(str const&, ip_port const& source) {
    str const sender = utils::readable_ip(source);
    log_line(5, "Start session %s", arg_str(sender));
    control_adr = source;
    send_command(cmd_get_tlv_str(tag_session, str::null));
}

/// Composes a description of all channels, which goes nowhere: the command is kept for a debugger's sake.
void cmd_dump(str const&, ip_port const&) {
    str text("Channels: ");
    for (int i = 0; channels.valid(i); i++)
        text += channels[i].dumptext();
}

/// The first pattern given counts; what follows it is not read.
void cmd_led(str const& command, ip_port const&) {
    int pattern = 0;
    str rest = command;
    for (tlv field; field.take(rest);) {
        if (field.tag == field_driver_command) {
            pattern = str2int16(field.value);
            break;
        }
    }
    set_led1(pattern);
}

void cmd_loopback_test(str const&, ip_port const&) {
    constexpr int tag_reply = 21;
    constexpr int field_result = 9;
    send_command(cmd_get_tlv_str(tag_reply, cmd_get_tlv_short(field_result, loopback_test())));
}

struct command {
    int tag;
    void (*carry_out)(str const& value, ip_port const& source);
};
constexpr command commands[] = {
    {4, cmd_end},         {7, cmd_log_level},      {8, cmd_signal},       {10, cmd_dtmf},
    {11, cmd_reset_base}, {12, cmd_playback},      {13, cmd_ntp_offset},  {15, cmd_tunnel},
    {16, cmd_open},       {17, cmd_media},         {18, cmd_tdm_channel}, {tag_session, cmd_session},
    {20, cmd_dump},       {21, cmd_loopback_test}, {22, cmd_led},
};

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
    tlv message;
    while (message.take(stream))
        dispatch_command(message.tag, message.value, source);
}

void dispatch_command(int tag, str const& value, ip_port const& source) {
    if (tag != tag_session && !from_control_peer(source))
        return;
    for (command const& known : commands)
        if (known.tag == tag)
            known.carry_out(value, source);
}
