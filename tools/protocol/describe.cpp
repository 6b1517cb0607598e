#include <algorithm>

#include "lib/protocol.h"
#include "lib/rtcp_numbers.h"
#include "lib/wire.h"
#include "tools/protocol/description.h"
#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

constexpr char const* undecodable_name = "undecodable";

description undecodable_description(std::string const& reason, byte_view data) {
    return {undecodable_name, {{"reason", reason}, {"data", to_hex(data)}}};
}

// Reports

/// "SR SDES XR" for a compound RTCP packet. In SRTCP only the first 8 bytes are readable; there the names end at the
/// first impossible packet.
std::string rtcp_packet_names(byte_view data) {
    constexpr std::size_t header_and_ssrc_bytes = 8;
    constexpr int first = rtcp::packet_type::sender_report;
    std::string text;
    while (data.size() >= header_and_ssrc_bytes && data[0] >> 6 == 2 && data[1] >= first &&
           data[1] <= rtcp::packet_type::extended_report) {
        std::size_t const length = (std::size_t{wire::get16(data.data() + 2)} + 1) * 4;
        text += (text.empty() ? "" : " ") + std::string(rtcp::packet_type_names[data[1] - first]);
        if (length >= data.size())
            break;
        data = data.subspan(length);
    }
    return text;
}

/// A log line without the keys: the process logs those that it is given, "SRTP Tx=HEX Rx=HEX".
std::string without_keys(std::string const& text) {
    if (!text.starts_with("SRTP Tx="))
        return text;
    std::string hidden;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const value = std::min(text.find('=', at), text.size() - 1) + 1;
        std::size_t const end = std::min(text.find(' ', value), text.size());
        hidden += text.substr(at, value - at) + "(" + std::to_string((end - value) / 2) + "_bytes)";
        at = end;
    }
    return hidden;
}

described_field field(field_format const& format, int number) {
    return {format.name, std::int64_t{number}};
}

described_field field(field_format const& format, bytes const& data) {
    return {format.name, to_hex(data)};
}

described_field field(field_format const& format, address const& endpoint) {
    return {format.name, to_text(endpoint)};
}

described_field field(field_format const& format, std::string const& text) {
    return {format.name, text};
}

std::string report_name(int tag) {
    auto const found = std::ranges::find(report_formats, tag, &message_format::tag);
    return found->name;
}

struct describer {
    keys show;

    description operator()(log_line const& r) const {
        std::string const text = show == keys::shown ? r.text : without_keys(r.text);
        description d{report_name(report_log::tag), {field(report_log::level, r.level), field(report_log::text, text)}};
        if (!r.detail.empty())
            d.fields.push_back(field(report_log::detail, r.detail));
        return d;
    }
    description operator()(open_reply const& r) const {
        return {report_name(report_open::tag),
                {field(report_open::call, r.call), field(report_open::rtp_port, r.rtp_port),
                 field(report_open::rtcp_port, r.rtcp_port)}};
    }
    description operator()(signal_data const& r) const {
        return {report_name(report_signal::tag), {field(report_signal::data, r.data)}};
    }
    description operator()(driver_result const& r) const {
        return {report_name(report_reset_base::tag),
                {field(report_reset_base::command, r.command), field(report_reset_base::result, r.result)}};
    }
    description operator()(rtcp_copy const& r) const {
        return {report_name(report_rtcp::tag),
                {field(report_rtcp::call, r.call),
                 field(report_rtcp::call_id, r.call_id),
                 {"direction", std::string((r.received ? report_rtcp::received : report_rtcp::sent).name)},
                 {"packets", rtcp_packet_names(r.packet)},
                 {"data", to_hex(r.packet)}}};
    }
    description operator()(tunnel_data const& r) const {
        description d{report_name(report_tunnel::tag),
                      {field(report_tunnel::call, r.call), field(report_tunnel::from, r.from), {"rtcp", r.rtcp}}};
        if (r.tcp)
            d.fields.push_back({report_tunnel::tcp.name, *r.tcp});
        d.fields.push_back({"data", to_hex(r.data)});
        return d;
    }
    description operator()(heartbeat const&) const { return {report_name(report_heartbeat::tag), {}}; }
    description operator()(loopback_result const& r) const {
        return {report_name(report_loopback_test::tag), {{report_loopback_test::found.name, r.found}}};
    }
    description operator()(zrtp_data const& r) const {
        return {
            report_name(report_zrtp::tag),
            {field(report_zrtp::call, r.call), field(report_zrtp::from, r.from), field(report_zrtp::packet, r.packet)}};
    }
    description operator()(new_ssrc const& r) const {
        return {report_name(report_new_ssrc::tag),
                {field(report_new_ssrc::call, r.call), field(report_new_ssrc::from, r.from),
                 field(report_new_ssrc::ssrc, r.ssrc)}};
    }
    description operator()(driver_line const& r) const {
        return {report_name(report_driver_line::tag), {{"text", r.text}}};
    }
    description operator()(srtp_verified const& r) const {
        return {report_name(report_srtp_verified::tag), {field(report_srtp_verified::call, r.call)}};
    }
    description operator()(playback_empty const& r) const {
        return {report_name(report_playback_empty::tag), {field(report_playback_empty::call, r.call)}};
    }
    description operator()(undecodable const& r) const { return undecodable_description(r.reason, r.data); }
};

// Commands

std::string codec_name(std::uint8_t number) {
    return number < std::size(codec_formats) ? codec_formats[number].name : std::to_string(number);
}

std::int64_t big_endian(byte_view value) {
    std::int64_t number = 0;
    for (std::uint8_t const byte : value)
        number = number << 8 | byte;
    return number;
}

/// Whether a value of this length can be of this kind.
bool fits(value_kind kind, std::size_t length) {
    switch (kind) {
        case value_kind::number:
        case value_kind::signed_number:
        case value_kind::flag:
        case value_kind::byte: return length == 1 || length == 2;
        case value_kind::signed_long: return length == 4;
        case value_kind::endpoint: return length == 6 || length == 18;
        case value_kind::codec_to_send:
        case value_kind::codec_to_map: return length == 2;
        case value_kind::text:
        case value_kind::data:
        case value_kind::secret: return true;
    }
    return false;
}

described_field describe_field(field_format const& format, byte_view value, keys show) {
    std::string const name = format.name;
    if (!fits(format.kind, value.size()))
        return {name + "_malformed", to_hex(value)};
    switch (format.kind) {
        case value_kind::number:
        case value_kind::flag:
        case value_kind::byte: return {name, big_endian(value)};
        case value_kind::signed_number: return {name, std::int64_t{static_cast<std::int16_t>(big_endian(value))}};
        case value_kind::signed_long: return {name, std::int64_t{static_cast<std::int32_t>(big_endian(value))}};
        case value_kind::text: return {name, std::string(value.begin(), value.end())};
        case value_kind::data: return {name, to_hex(value)};
        case value_kind::endpoint: return {name, to_text(*decode_address(value))};
        case value_kind::codec_to_send: return {name, std::to_string(value[0]) + "=" + codec_name(value[1])};
        case value_kind::codec_to_map: return {name, std::to_string(value[1]) + "=" + codec_name(value[0])};
        case value_kind::secret: break;
    }
    if (show == keys::shown)
        return {name, to_hex(value)};
    return {name + "_bytes", static_cast<std::int64_t>(value.size())};
}

description describe_command(tlv const& element, keys show) {
    auto const command = std::ranges::find(command_formats, element.tag, &message_format::tag);
    if (command == std::end(command_formats)) {
        bytes whole;
        append_tlv(whole, element.tag, element.value);
        return undecodable_description("no command has this tag", whole);
    }
    description result{command->name, {}};
    for (tlv const& sub : split_tlvs(element.value).elements) {
        auto const format = std::ranges::find(command->fields, sub.tag, &field_format::tag);
        if (format != command->fields.end())
            result.fields.push_back(describe_field(*format, sub.value, show));
    }
    return result;
}

}  // namespace

description describe(report const& message, keys show) {
    return std::visit(describer{show}, message);
}

std::vector<std::string> const& report_names() {
    static std::vector<std::string> const names = [] {
        std::vector<std::string> list;
        for (message_format const& format : report_formats)
            list.emplace_back(format.name);
        list.emplace_back(undecodable_name);
        return list;
    }();
    return names;
}

std::vector<description> describe_commands(byte_view datagram, keys show) {
    tlv_list const list = split_tlvs(datagram);
    std::vector<description> commands;
    for (tlv const& element : list.elements)
        commands.push_back(describe_command(element, show));
    if (!list.rest.empty())
        commands.push_back(undecodable_description("element is cut off", list.rest));
    return commands;
}

}  // namespace protocol
