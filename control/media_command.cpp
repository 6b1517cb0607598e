#include "control/media_command.h"

#include "control/command_fields.h"
#include "lib/log_line.h"
#include "lib/random.h"
#include "media/channel.h"

namespace {

constexpr int payload_types = 128;        // RFC 3550 section 5.1: 7 bits
constexpr unsigned char unmapped = 0xFF;  // of a payload type that is not accepted
constexpr int default_ptime_ms = 20;      // RFC 3551 section 4.2
constexpr int ssrc_bytes = 4;

struct codec_group {
    bool present = false;
    int codec = 0;
    int payload_type = 0;
    int event_payload_type = 0;
    int ptime = default_ptime_ms;
    str map = str(unmapped, payload_types);
    str ssrc;
    bool ssrc_given = false;

    void take(tlv const& field);
    void apply(channel& target);

private:
    void map_payload_type(int payload_type, unsigned char codec_number);
};

struct destination_group {
    bool present = false;
    ip_port rtp;
    ip_port rtcp;
    bool tcp = false;

    void take(tlv const& field);
};

struct xr_group {
    bool present = false;
    str mode;

    void take(tlv const& field);
};

struct srtp_group {
    bool present = false;
    str receive_key;
    str transmit_key;
    int tag_length = 0;
    str mki;

    void take(tlv const& field);
};

void codec_group::map_payload_type(int type, unsigned char codec_number) {
    if (type < payload_types)
        map.set_character(type, codec_number);
}

void codec_group::take(tlv const& field) {
    unsigned char const byte0 = field.value[0];
    unsigned char const byte1 = field.value[1];
    switch (field.tag) {
        case 6:
            codec = byte1;
            payload_type = byte0;
            log_line(7, "Send codec local %d remote %d", arg_int(byte1), arg_int(byte0));
            break;
        case 16:
            map_payload_type(byte1, byte0);
            log_line(7, "Map codec %d to %d", arg_int(byte0), arg_int(byte1));
            break;
        case 17: ptime = str2int16(field.value); break;
        case 19:
            event_payload_type = byte0;
            map_payload_type(byte0, codec::telephone_event);
            break;
        case 33:
            ssrc = field.value;
            ssrc_given = true;
            return;  // goes with the group but does not make it one
        default: return;
    }
    present = true;
}

void codec_group::apply(channel& target) {
    target.set_codec(codec, payload_type, event_payload_type, map, ptime);
    target.set_ssrc(ssrc_given ? ssrc : utils::generate_randstr(ssrc_bytes));
}

void xr_group::take(tlv const& field) {
    if (field.tag != 21)
        return;
    mode = field.value;
    present = true;
}

void srtp_group::take(tlv const& field) {
    switch (field.tag) {
        case 23: receive_key = field.value; break;
        case 24: transmit_key = field.value; break;
        case 25: tag_length = field.value[0]; break;
        case 30: mki = field.value; break;
        default: return;
    }
    present = true;
}

void destination_group::take(tlv const& field) {
    switch (field.tag) {
        case 5: rtp = field.get_address(); break;
        case 26: rtcp = field.get_address(); break;
        case 34: tcp = str2int16(field.value) > 0; return;  // goes with the group but does not make it one
        default: return;
    }
    present = true;
}

}  // namespace

void cmd_media(str const& command, ip_port const&) {
    int call = no_call;
    codec_group codecs;
    destination_group destination;
    xr_group xr;
    srtp_group srtp;
    for_each_field(command, [&](tlv const& field) {
        if (field.tag == field_call)
            call = str2int16(field.value);
        codecs.take(field);
        destination.take(field);
        xr.take(field);
        srtp.take(field);
    });
    if (!channels.valid(call))
        return;
    if (codecs.present)
        codecs.apply(channels[call]);
    if (destination.present)
        channels[call].set_destination(destination.rtp, destination.rtcp, destination.tcp);
    if (xr.present)
        channels[call].set_rtcp_xr(xr.mode);
    if (srtp.present)
        channels[call].set_srtp(srtp.receive_key, srtp.transmit_key, srtp.tag_length, srtp.mki);
}
