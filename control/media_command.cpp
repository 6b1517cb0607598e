#include "control/media_command.h"

#include "lib/log.h"
#include "lib/random.h"
#include "media/channel.h"

namespace {

namespace media = protocol::cmd_media;

constexpr int payload_types = 128;        // RFC 3550 section 5.1: 7 bits
constexpr unsigned char unmapped = 0xFF;  // of a payload type that is not accepted
constexpr int ssrc_bytes = 4;

/// The codec group. Its fields are logged as they are read, whether or not there is such a call.
class codec_group {
public:
    explicit codec_group(command_fields const& fields) {
        fields.each([this](tlv const& field) { take(field); });
    }
    bool triggered = false;
    int codec = 0;
    int payload_type = 0;
    int event_payload_type = 0;
    str map = str(unmapped, payload_types);

private:
    void take(tlv const& field);
    void map_payload_type(int type, unsigned char codec_number) {
        if (type < payload_types)
            map.set_character(type, codec_number);
    }
};

void codec_group::take(tlv const& field) {
    unsigned char const byte0 = field.value[0];
    unsigned char const byte1 = field.value[1];
    switch (field.tag) {
        case media::send_codec:
            codec = byte1;
            payload_type = byte0;
            log_line(7, "Send codec local %d remote %d", arg_int(byte1), arg_int(byte0));
            break;
        case media::codec_map:
            map_payload_type(byte1, byte0);
            log_line(7, "Map codec %d to %d", arg_int(byte0), arg_int(byte1));
            break;
        case media::event_payload_type:
            event_payload_type = byte0;
            map_payload_type(byte0, protocol::codec_number::telephone_event);
            break;
        case media::ptime: break;
        default: return;
    }
    triggered = true;
}

void apply_codecs(channel& target, codec_group const& codecs, command_fields const& fields) {
    target.set_codec(codecs.codec, codecs.payload_type, codecs.event_payload_type, codecs.map,
                     fields.number(media::ptime));
    target.set_ssrc(fields.has(media::ssrc) ? fields.bytes(media::ssrc) : utils::generate_randstr(ssrc_bytes));
}

void apply_destination(channel& target, command_fields const& fields) {
    if (fields.has(media::rtp_dest) || fields.has(media::rtcp_dest))
        target.set_destination(fields.endpoint(media::rtp_dest), fields.endpoint(media::rtcp_dest),
                               fields.number(media::tcp) != 0);
}

void apply_xr(channel& target, command_fields const& fields) {
    if (fields.has(media::xr_mode))
        target.set_rtcp_xr(fields.bytes(media::xr_mode));
}

void apply_srtp(channel& target, command_fields const& fields) {
    if (fields.has(media::srtp_rx_key) || fields.has(media::srtp_tx_key) || fields.has(media::srtp_tag) ||
        fields.has(media::srtp_mki))
        target.set_srtp(fields.secret(media::srtp_rx_key), fields.secret(media::srtp_tx_key),
                        fields.byte(media::srtp_tag), fields.bytes(media::srtp_mki));
}

}  // namespace

void cmd_media(command_fields const& fields, ip_port const&) {
    codec_group const codecs(fields);
    int const call = fields.number(media::call);
    if (!channels.valid(call))
        return;
    channel& target = channels[call];
    if (codecs.triggered)
        apply_codecs(target, codecs, fields);
    apply_destination(target, fields);
    apply_xr(target, fields);
    apply_srtp(target, fields);
}
