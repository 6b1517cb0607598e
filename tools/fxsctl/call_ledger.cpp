#include "tools/fxsctl/call_ledger.h"

#include <algorithm>

#include "lib/protocol.h"
#include "lib/wire.h"
#include "tools/protocol/tlv.h"

namespace fxsctl {
namespace {

using protocol::byte_view;
using protocol::bytes;
using protocol::tlv;
namespace media = protocol::cmd_media;

class fields {
public:
    explicit fields(byte_view value) : all(protocol::split_tlvs(value).elements) {}

    bytes const* find(int tag) const {
        bytes const* found = nullptr;
        for (tlv const& one : all)
            found = one.tag == tag ? &one.value : found;
        return found;
    }
    bool has(int tag) const { return find(tag) != nullptr; }
    std::optional<std::uint16_t> number(int tag) const {
        bytes const* const value = find(tag);
        return value != nullptr && value->size() == 2 ? std::optional(wire::get16(value->data())) : std::nullopt;
    }
    std::optional<protocol::address> endpoint(int tag) const {
        bytes const* const value = find(tag);
        return value != nullptr ? protocol::decode_address(*value) : std::nullopt;
    }
    std::uint8_t byte(int tag) const {
        bytes const* const value = find(tag);
        return value != nullptr && !value->empty() ? value->front() : std::uint8_t{0};
    }
    /// Whether the group is applied.
    bool triggers(protocol::media_group group) const {
        return std::ranges::any_of(media::fields, [&](protocol::field_format const& field) {
            return field.triggers && field.group == group && has(field.tag);
        });
    }

    std::vector<tlv> all;
};

void apply_codecs(known_call& call, fields const& given) {
    call.codecs_known = true;
    call.accepted.clear();
    bytes const* const send = given.find(media::send_codec);
    call.send = send != nullptr && send->size() == 2 ? protocol::codec_choice{(*send)[1], (*send)[0]}
                                                     : protocol::codec_choice{0, 0};
    for (tlv const& one : given.all)
        if (one.tag == media::codec_map && one.value.size() == 2)
            call.accepted[one.value[1]] = one.value[0];
    call.event_payload_type = given.byte(media::event_payload_type);
    if (given.has(media::event_payload_type))
        call.accepted[call.event_payload_type] = protocol::codec_number::telephone_event;
    call.ptime_ms = given.number(media::ptime).value_or(std::uint16_t{media::ptime.fallback});
}

std::optional<bytes> key_of(fields const& given, int tag) {
    bytes const* const value = given.find(tag);
    return value != nullptr && !value->empty() ? std::optional(*value) : std::nullopt;
}

void apply_media(known_call& call, fields const& given) {
    using group = protocol::media_group;
    if (given.triggers(group::codec))
        apply_codecs(call, given);
    if (given.triggers(group::destination)) {
        call.destination_known = true;
        call.rtp_dest = given.endpoint(media::rtp_dest);
        call.rtcp_dest = given.endpoint(media::rtcp_dest);
        call.tcp = given.number(media::tcp).value_or(0) != 0;
    }
    if (given.triggers(group::srtp)) {
        call.keys_known = true;
        call.rx_key = key_of(given, media::srtp_rx_key);
        call.tx_key = key_of(given, media::srtp_tx_key);
        call.tag_bytes = given.byte(media::srtp_tag);
        call.verified = false;
    }
}

}  // namespace

std::optional<std::uint16_t> ledger_call(bool command, std::uint16_t tag, byte_view value) {
    static constexpr int commands[] = {protocol::cmd_open::tag, media::tag, protocol::cmd_tdm_channel::tag,
                                       protocol::cmd_end::tag};
    static constexpr int reports[] = {protocol::report_open::tag, protocol::report_new_ssrc::tag,
                                      protocol::report_srtp_verified::tag};
    bool const wanted =
        command ? std::ranges::count(commands, int{tag}) != 0 : std::ranges::count(reports, int{tag}) != 0;
    auto const call = wanted ? fields(value).number(protocol::call_field) : std::nullopt;
    return call && *call < protocol::call_count ? call : std::nullopt;
}

void call_ledger::open(std::uint16_t call) {
    known_call& opened = by_index[call];
    opened.from_the_start = true;
    opened.codecs_known = opened.destination_known = opened.keys_known = opened.line_known = true;
}

void call_ledger::put_on_line(std::uint16_t call, std::optional<std::uint16_t> line) {
    known_call& moved = by_index[call];
    moved.last_line = moved.line ? moved.line : moved.last_line;
    moved.line = line;
    moved.line_known = true;
    std::erase(line_order, call);
    if (line)
        line_order.push_back(call);
}

void call_ledger::add(bool command, byte_view messages, std::int64_t time_ms) {
    for (tlv const& one : protocol::split_tlvs(messages).elements) {
        auto const call = ledger_call(command, one.tag, one.value);
        if (!call)
            continue;
        fields const given(one.value);
        if (command && one.tag == protocol::cmd_end::tag) {
            by_index.erase(*call);
            std::erase(line_order, *call);
        } else if (command && one.tag == protocol::cmd_open::tag) {
            open(*call);
        } else if (command && one.tag == media::tag) {
            apply_media(by_index[*call], given);
        } else if (command) {
            auto const line = given.number(protocol::cmd_tdm_channel::slot);
            put_on_line(*call, line.value_or(protocol::no_slot) < protocol::slot_count ? line : std::nullopt);
        } else if (one.tag == protocol::report_open::tag) {
            by_index[*call].rtp_port = given.number(protocol::report_open::rtp_port).value_or(0);
            by_index[*call].rtcp_port = given.number(protocol::report_open::rtcp_port).value_or(0);
        } else if (one.tag == protocol::report_new_ssrc::tag) {
            by_index[*call].stream_times_ms.push_back(time_ms);
        } else {
            by_index[*call].verified = true;
        }
    }
}

known_call const* call_ledger::find(std::uint16_t call) const {
    auto const found = by_index.find(call);
    return found != by_index.end() ? &found->second : nullptr;
}

std::vector<std::uint16_t> call_ledger::on_line(std::uint16_t line) const {
    std::vector<std::uint16_t> there;
    for (std::uint16_t const call : line_order)
        if (by_index.at(call).line == line)
            there.push_back(call);
    return there;
}

}  // namespace fxsctl
