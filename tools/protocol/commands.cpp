#include "tools/protocol/commands.h"

#include "tools/protocol/tags.h"
#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

bytes wrap(std::uint16_t tag, bytes const& fields = {}) {
    bytes out;
    append_tlv(out, tag, fields);
    return out;
}

bytes wrap_short(std::uint16_t tag, std::uint16_t field_tag, std::uint16_t value) {
    bytes fields;
    append_short(fields, field_tag, value);
    return wrap(tag, fields);
}

void add_short(bytes& fields, std::uint16_t tag, std::optional<std::uint16_t> value) {
    if (value)
        append_short(fields, tag, *value);
}

void add_bytes(bytes& fields, std::uint16_t tag, std::optional<bytes> const& value) {
    if (value)
        append_tlv(fields, tag, *value);
}

void add_byte(bytes& fields, std::uint16_t tag, std::optional<std::uint8_t> value) {
    if (value)
        append_tlv(fields, tag, bytes{*value});
}

void add_address(bytes& fields, std::uint16_t tag, std::optional<address> const& value) {
    if (value)
        append_tlv(fields, tag, encode_address(*value));
}

void add_codec_group(bytes& fields, media_command const& command) {
    if (command.send)
        append_tlv(fields, field::send_codec, bytes{command.send->payload_type, command.send->codec});
    add_byte(fields, field::event_payload_type, command.event_payload_type);
    for (codec_choice const& entry : command.map)
        append_tlv(fields, field::codec_map, bytes{entry.codec, entry.payload_type});
    add_short(fields, field::ptime, command.ptime_ms);
    add_bytes(fields, field::ssrc, command.ssrc);
}

void add_srtp_group(bytes& fields, media_command const& command) {
    add_bytes(fields, field::srtp_rx_key, command.srtp_rx_key);
    add_bytes(fields, field::srtp_tx_key, command.srtp_tx_key);
    add_byte(fields, field::srtp_tag_length, command.srtp_tag_bytes);
    add_bytes(fields, field::srtp_mki, command.srtp_mki);
}

}  // namespace

bytes encode(end_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    return wrap(command_tag::end, fields);
}

bytes encode(log_level_command const& command) {
    return wrap_short(command_tag::log_level, field::level, command.level);
}

bytes encode(signal_command const& command) {
    bytes fields;
    for (bytes const& piece : command.data)
        append_tlv(fields, field::signal_out, piece);
    return wrap(command_tag::signal, fields);
}

bytes encode(dtmf_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    append_short(fields, field::digit, command.digit);
    return wrap(command_tag::dtmf, fields);
}

bytes encode(reset_base_command const& command) {
    return wrap_short(command_tag::reset_base, field::driver_command, command.command);
}

bytes encode(playback_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    append_short(fields, field::tone_kind, command.kind);
    append_short(fields, field::tone_set, command.tone_set);
    return wrap(command_tag::playback, fields);
}

bytes encode(ntp_offset_command const& command) {
    bytes fields;
    append_long(fields, field::ntp_offset, static_cast<std::uint32_t>(command.seconds));
    return wrap(command_tag::ntp_offset, fields);
}

bytes encode(tunnel_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    add_address(fields, field::address, command.to);
    if (!command.rtp_data.empty())
        append_tlv(fields, field::rtp_data, command.rtp_data);
    if (!command.rtcp_data.empty())
        append_tlv(fields, field::rtcp_data, command.rtcp_data);
    if (command.tcp)
        append_short(fields, field::tcp, 1);
    return wrap(command_tag::tunnel, fields);
}

bytes encode(open_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    add_short(fields, field::port_min, command.port_min);
    add_short(fields, field::port_max, command.port_max);
    add_short(fields, field::tos, command.tos);
    if (!command.call_id.empty())
        append_tlv(fields, field::call_id, to_bytes(command.call_id));
    return wrap(command_tag::open, fields);
}

bytes encode(media_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    add_codec_group(fields, command);
    add_address(fields, field::rtp_dest, command.rtp_dest);
    add_address(fields, field::rtcp_dest, command.rtcp_dest);
    if (command.tcp)
        append_short(fields, field::tcp, *command.tcp ? 1 : 0);
    if (command.xr_mode)
        append_tlv(fields, field::xr_mode, to_bytes(*command.xr_mode));
    add_srtp_group(fields, command);
    return wrap(command_tag::media, fields);
}

bytes encode(tdm_command const& command) {
    bytes fields;
    add_short(fields, field::call, command.call);
    add_short(fields, field::tdm_slot, command.slot);
    return wrap(command_tag::tdm_channel, fields);
}

bytes encode(session_command const&) {
    return wrap(command_tag::session);
}

bytes encode(dump_command const&) {
    return wrap(command_tag::dump);
}

bytes encode(loopback_test_command const&) {
    return wrap(command_tag::loopback_test);
}

bytes encode(led_command const& command) {
    return wrap_short(command_tag::led, field::led_pattern, command.pattern);
}

}  // namespace protocol
