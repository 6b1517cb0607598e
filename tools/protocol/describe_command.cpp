#include <array>
#include <span>

#include "tools/protocol/codecs.h"
#include "tools/protocol/description.h"
#include "tools/protocol/tags.h"
#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

enum class kind { number, seconds, text, data, endpoint, send_codec, codec_map, secret };

struct field_shape {
    std::uint16_t tag;
    char const* name;
    kind shape;
};

struct command_shape {
    std::uint16_t tag;
    char const* name;
    std::span<field_shape const> fields;
};

constexpr field_shape call{field::call, "call", kind::number};

constexpr field_shape end_fields[] = {call};
constexpr field_shape log_level_fields[] = {{field::level, "level", kind::number}};
constexpr field_shape signal_fields[] = {{field::signal_out, "data", kind::data}};
constexpr field_shape dtmf_fields[] = {call, {field::digit, "digit", kind::number}};
constexpr field_shape reset_base_fields[] = {{field::driver_command, "command", kind::number}};
constexpr field_shape playback_fields[] = {
    call, {field::tone_kind, "kind", kind::number}, {field::tone_set, "set", kind::number}};
constexpr field_shape ntp_offset_fields[] = {{field::ntp_offset, "seconds", kind::seconds}};
constexpr field_shape tunnel_fields[] = {call,
                                         {field::address, "to", kind::endpoint},
                                         {field::tcp, "tcp", kind::number},
                                         {field::rtp_data, "rtp_data", kind::data},
                                         {field::rtcp_data, "rtcp_data", kind::data}};
constexpr field_shape open_fields[] = {call,
                                       {field::port_min, "port_min", kind::number},
                                       {field::port_max, "port_max", kind::number},
                                       {field::call_id, "call_id", kind::text},
                                       {field::tos, "tos", kind::number}};
constexpr field_shape media_fields[] = {call,
                                        {field::send_codec, "send", kind::send_codec},
                                        {field::event_payload_type, "event_pt", kind::number},
                                        {field::codec_map, "map", kind::codec_map},
                                        {field::ptime, "ptime", kind::number},
                                        {field::ssrc, "ssrc", kind::data},
                                        {field::rtp_dest, "rtp", kind::endpoint},
                                        {field::rtcp_dest, "rtcp", kind::endpoint},
                                        {field::tcp, "tcp", kind::number},
                                        {field::xr_mode, "xr", kind::text},
                                        {field::srtp_rx_key, "srtp_rx_key", kind::secret},
                                        {field::srtp_tx_key, "srtp_tx_key", kind::secret},
                                        {field::srtp_tag_length, "srtp_tag", kind::number},
                                        {field::srtp_mki, "srtp_mki", kind::data}};
constexpr field_shape tdm_fields[] = {call, {field::tdm_slot, "line", kind::number}};
constexpr field_shape led_fields[] = {{field::led_pattern, "pattern", kind::number}};

constexpr command_shape shapes[] = {{command_tag::end, "end", end_fields},
                                    {command_tag::log_level, "log-level", log_level_fields},
                                    {command_tag::signal, "signal", signal_fields},
                                    {command_tag::dtmf, "dtmf", dtmf_fields},
                                    {command_tag::reset_base, "reset-base", reset_base_fields},
                                    {command_tag::playback, "play", playback_fields},
                                    {command_tag::ntp_offset, "ntp-offset", ntp_offset_fields},
                                    {command_tag::tunnel, "tunnel", tunnel_fields},
                                    {command_tag::open, "open", open_fields},
                                    {command_tag::media, "media", media_fields},
                                    {command_tag::tdm_channel, "tdm", tdm_fields},
                                    {command_tag::session, "session", {}},
                                    {command_tag::dump, "dump", {}},
                                    {command_tag::loopback_test, "loopback-test", {}},
                                    {command_tag::led, "led", led_fields}};

std::string codec_name(std::uint8_t number) {
    return number < codecs().size() ? std::string(codecs()[number].name) : std::to_string(number);
}

std::int64_t big_endian(byte_view value) {
    std::int64_t number = 0;
    for (std::uint8_t const byte : value)
        number = number << 8 | byte;
    return number;
}

// Missing when the value has not the length its kind asks for.
bool fits(kind shape, std::size_t length) {
    switch (shape) {
        case kind::number: return length == 1 || length == 2;
        case kind::seconds: return length == 4;
        case kind::endpoint: return length == 6 || length == 18;
        case kind::send_codec:
        case kind::codec_map: return length == 2;
        case kind::text:
        case kind::data:
        case kind::secret: return true;
    }
    return false;
}

described_field describe_field(field_shape const& shape, byte_view value, keys show) {
    if (!fits(shape.shape, value.size()))
        return {std::string(shape.name) + "_malformed", to_hex(value)};
    switch (shape.shape) {
        case kind::number: return {shape.name, big_endian(value)};
        case kind::seconds: return {shape.name, std::int64_t{static_cast<std::int32_t>(big_endian(value))}};
        case kind::text: return {shape.name, std::string(value.begin(), value.end())};
        case kind::data: return {shape.name, to_hex(value)};
        case kind::endpoint: return {shape.name, to_text(*decode_address(value))};
        case kind::send_codec: return {shape.name, std::to_string(value[0]) + "=" + codec_name(value[1])};
        case kind::codec_map: return {shape.name, std::to_string(value[1]) + "=" + codec_name(value[0])};
        case kind::secret:
            if (show == keys::shown)
                return {shape.name, to_hex(value)};
            break;
    }
    return {std::string(shape.name) + "_bytes", static_cast<std::int64_t>(value.size())};
}

description undecodable_command(char const* reason, byte_view data) {
    return {"undecodable", {{"reason", std::string(reason)}, {"data", to_hex(data)}}};
}

description describe_command(tlv const& element, keys show) {
    for (command_shape const& command : shapes) {
        if (command.tag != element.tag)
            continue;
        description result{command.name, {}};
        for (tlv const& sub : split_tlvs(element.value).elements) {
            for (field_shape const& shape : command.fields)
                if (shape.tag == sub.tag)
                    result.fields.push_back(describe_field(shape, sub.value, show));
        }
        return result;
    }
    bytes whole;
    append_tlv(whole, element.tag, element.value);
    return undecodable_command("no command has this tag", whole);
}

}  // namespace

std::vector<description> describe_commands(byte_view datagram, keys show) {
    tlv_list const list = split_tlvs(datagram);
    std::vector<description> commands;
    for (tlv const& element : list.elements)
        commands.push_back(describe_command(element, show));
    if (!list.rest.empty())
        commands.push_back(undecodable_command("element is cut off", list.rest));
    return commands;
}

}  // namespace protocol
