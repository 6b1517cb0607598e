#include "tools/protocol/commands.h"

#include "lib/protocol.h"
#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

/// Collects the sub-fields of a command, in order; an absent value adds none.
class field_writer {
public:
    field_writer& number(int tag, std::optional<std::uint16_t> value) {
        if (value)
            append_short(fields, tag, *value);
        return *this;
    }
    field_writer& flag(int tag, std::optional<bool> value) {
        return value ? number(tag, std::uint16_t{*value}) : *this;
    }
    field_writer& byte(int tag, std::optional<std::uint8_t> value) { return value ? data(tag, bytes{*value}) : *this; }
    field_writer& data(int tag, std::optional<bytes> const& value) {
        if (value)
            append_tlv(fields, tag, *value);
        return *this;
    }
    field_writer& data_unless_empty(int tag, bytes const& value) { return value.empty() ? *this : data(tag, value); }
    field_writer& endpoint(int tag, std::optional<address> const& value) {
        return value ? data(tag, encode_address(*value)) : *this;
    }

    bytes command(int tag) const {
        bytes out;
        append_tlv(out, tag, fields);
        return out;
    }

private:
    bytes fields;
};

void add_codec_group(field_writer& out, media_command const& command) {
    if (command.send)
        out.data(cmd_media::send_codec, bytes{command.send->payload_type, command.send->codec});
    for (codec_choice const& entry : command.map)
        out.data(cmd_media::codec_map, bytes{entry.codec, entry.payload_type});
    out.number(cmd_media::ptime, command.ptime_ms)
        .byte(cmd_media::event_payload_type, command.event_payload_type)
        .data(cmd_media::ssrc, command.ssrc);
}

}  // namespace

bytes encode(end_command const& command) {
    return field_writer().number(cmd_end::call, command.call).command(cmd_end::tag);
}

bytes encode(log_level_command const& command) {
    return field_writer().number(cmd_log_level::level, command.level).command(cmd_log_level::tag);
}

bytes encode(signal_command const& command) {
    field_writer out;
    for (bytes const& piece : command.data)
        out.data(cmd_signal::data, piece);
    return out.command(cmd_signal::tag);
}

bytes encode(dtmf_command const& command) {
    return field_writer()
        .number(cmd_dtmf::call, command.call)
        .number(cmd_dtmf::digit, command.digit)
        .command(cmd_dtmf::tag);
}

bytes encode(reset_base_command const& command) {
    return field_writer().number(cmd_reset_base::command, command.command).command(cmd_reset_base::tag);
}

bytes encode(playback_command const& command) {
    return field_writer()
        .number(cmd_playback::call, command.call)
        .number(cmd_playback::tone_kind, command.kind)
        .number(cmd_playback::tone_set, command.tone_set)
        .command(cmd_playback::tag);
}

bytes encode(ntp_offset_command const& command) {
    bytes fields;
    append_long(fields, cmd_ntp_offset::seconds, static_cast<std::uint32_t>(command.seconds));
    bytes out;
    append_tlv(out, cmd_ntp_offset::tag, fields);
    return out;
}

bytes encode(tunnel_command const& command) {
    return field_writer()
        .number(cmd_tunnel::call, command.call)
        .endpoint(cmd_tunnel::to, command.to)
        .data_unless_empty(cmd_tunnel::rtp_data, command.rtp_data)
        .data_unless_empty(cmd_tunnel::rtcp_data, command.rtcp_data)
        .flag(cmd_tunnel::tcp, command.tcp ? std::optional(true) : std::nullopt)
        .command(cmd_tunnel::tag);
}

bytes encode(open_command const& command) {
    return field_writer()
        .number(cmd_open::call, command.call)
        .number(cmd_open::port_min, command.port_min)
        .number(cmd_open::port_max, command.port_max)
        .data_unless_empty(cmd_open::call_id, to_bytes(command.call_id))
        .number(cmd_open::tos, command.tos)
        .command(cmd_open::tag);
}

bytes encode(media_command const& command) {
    field_writer out;
    out.number(cmd_media::call, command.call);
    add_codec_group(out, command);
    out.endpoint(cmd_media::rtp_dest, command.rtp_dest)
        .endpoint(cmd_media::rtcp_dest, command.rtcp_dest)
        .flag(cmd_media::tcp, command.tcp);
    if (command.xr_mode)
        out.data(cmd_media::xr_mode, to_bytes(*command.xr_mode));
    out.data(cmd_media::srtp_rx_key, command.srtp_rx_key)
        .data(cmd_media::srtp_tx_key, command.srtp_tx_key)
        .byte(cmd_media::srtp_tag, command.srtp_tag_bytes)
        .data(cmd_media::srtp_mki, command.srtp_mki);
    return out.command(cmd_media::tag);
}

bytes encode(tdm_command const& command) {
    return field_writer()
        .number(cmd_tdm_channel::call, command.call)
        .number(cmd_tdm_channel::slot, command.slot)
        .command(cmd_tdm_channel::tag);
}

bytes encode(session_command const&) {
    return field_writer().command(cmd_session::tag);
}

bytes encode(dump_command const&) {
    return field_writer().command(cmd_dump::tag);
}

bytes encode(loopback_test_command const&) {
    return field_writer().command(cmd_loopback_test::tag);
}

bytes encode(led_command const& command) {
    return field_writer().number(cmd_led::pattern, command.pattern).command(cmd_led::tag);
}

}  // namespace protocol
