#include <algorithm>
#include <span>

#include "lib/rtcp_numbers.h"
#include "lib/wire.h"
#include "tools/rtcp/byte_reader.h"
#include "tools/rtcp/packet.h"

namespace rtcp_view {
namespace {

using protocol::byte_view;

constexpr std::size_t answered_report_bytes = 8;
constexpr std::size_t srtcp_trailer_bytes = 4 + 10;  ///< index and tag, at least

struct header {
    std::uint8_t type;
    unsigned count;  ///< 5 bits
    bool padded;
    std::size_t length;  ///< of the packet, as it says
};

std::optional<header> header_of(byte_view data) {
    if (data.size() < rtcp::size::header || data[0] >> 6 != 2)
        return std::nullopt;
    std::size_t const words = std::size_t{wire::get16(data.data() + 2)} + 1;
    return header{data[1], data[0] & 0x1FU, (data[0] & 0x20) != 0, words * 4};
}

report_block take_block(byte_reader& in) {
    report_block block;
    block.ssrc = in.u32();
    std::uint32_t const losses = in.u32();
    block.fraction_lost = static_cast<std::uint8_t>(losses >> 24);
    block.lost = static_cast<std::int32_t>(losses << 8) >> 8;
    block.highest_sequence = in.u32();
    block.jitter = in.u32();
    block.last_sr = in.u32();
    block.delay = in.u32();
    return block;
}

void parse_report(header const& head, byte_reader& in, packet& out) {
    bool const by_sender = head.type == rtcp::packet_type::sender_report;
    if (in.left() < 4 + (by_sender ? std::size_t{rtcp::size::sender_info} : 0)) {
        out.problem = "too short";
        return;
    }
    report r;
    r.ssrc = in.u32();
    if (by_sender) {
        sender_info info;
        info.sent = {in.u32(), in.u32()};
        info.rtp_timestamp = in.u32();
        info.packets = in.u32();
        info.octets = in.u32();
        r.sender = info;
    }
    r.announced = head.count;
    while (r.blocks.size() < r.announced && in.left() >= rtcp::size::report_block)
        r.blocks.push_back(take_block(in));
    if (r.blocks.size() == r.announced) {
        r.extension = in.take_rest();
    } else if (by_sender && r.announced == 1 && in.left() == answered_report_bytes) {
        r.blockless = {in.u32(), in.u32()};
    } else {
        out.problem = std::to_string(r.blocks.size()) + " of " + std::to_string(r.announced) + " report blocks";
    }
    out.body = std::move(r);
}

/// One chunk ends with a zero byte and is filled up to a multiple of 4.
sdes_chunk take_chunk(byte_reader& in) {
    std::size_t const before = in.left();
    sdes_chunk chunk{in.u32(), {}};
    while (std::uint8_t const type = in.u8()) {
        std::size_t const length = in.u8();
        chunk.items.push_back({type, in.take_text(length)});
    }
    std::size_t const taken = before - in.left();
    in.take((4 - taken % 4) % 4);
    return chunk;
}

void parse_source_description(header const& head, byte_reader& in, packet& out) {
    source_description sdes;
    while (sdes.chunks.size() < head.count && !in.ran_out())
        sdes.chunks.push_back(take_chunk(in));
    out.body = std::move(sdes);
}

void parse_bye(header const& head, byte_reader& in, packet& out) {
    bye b;
    while (b.sources.size() < head.count && in.left() >= 4)
        b.sources.push_back(in.u32());
    if (b.sources.size() < head.count) {
        out.problem = "too short";
    } else if (in.left() > 0) {
        std::size_t const length = in.u8();
        b.reason = in.take_text(length);
        if (in.left() < 4)
            in.take(in.left());  // fills up the last word
    }
    out.body = std::move(b);
}

void parse_application(header const& head, byte_reader& in, packet& out) {
    if (in.left() < 8) {
        out.problem = "too short";
        return;
    }
    application app;
    app.subtype = static_cast<std::uint8_t>(head.count);
    app.ssrc = in.u32();
    app.name = in.take_text(4);
    app.data = in.take_rest();
    out.body = std::move(app);
}

void parse_extended(header const&, byte_reader& in, packet& out) {
    if (in.left() < 4) {
        out.problem = "too short";
        return;
    }
    std::uint32_t const ssrc = in.u32();
    out.body = extended_report{ssrc, parse_xr_blocks(in.take(in.left()))};
}

using body_parser = void (*)(header const& head, byte_reader& in, packet& out);

/// From sender_report on, as rtcp::packet_type_names; null: shown as bytes.
constexpr body_parser body_parsers[] = {parse_report, parse_report,      parse_source_description,
                                        parse_bye,    parse_application, nullptr,
                                        nullptr,      parse_extended};

/// The index of a type in both tables; their length for an unknown one.
std::size_t index_of(std::uint8_t type) {
    std::size_t const index = std::size_t{type} - rtcp::packet_type::sender_report;
    return std::min(index, std::size(body_parsers));
}

bool is_known(std::uint8_t type) {
    return index_of(type) < std::size(body_parsers);
}

byte_view without_padding(header const& head, byte_view body, std::string& problem) {
    if (!head.padded)
        return body;
    std::size_t const count = body.empty() ? 0 : body.back();
    if (count == 0 || count > body.size()) {
        problem = "padding of " + std::to_string(count) + " bytes does not fit";
        return body;
    }
    return body.first(body.size() - count);
}

packet parse_one(header const& head, byte_view data) {
    packet out;
    out.type = head.type;
    byte_view body = data.subspan(rtcp::size::header);
    std::string problem;
    if (head.length > data.size())
        problem = std::to_string(data.size()) + " of " + std::to_string(head.length) + " bytes";
    else
        body = without_padding(head, body, problem);
    byte_reader in(body);
    body_parser const parse = is_known(head.type) ? body_parsers[index_of(head.type)] : nullptr;
    if (parse != nullptr) {
        parse(head, in, out);
        out.problem = in.ran_out() ? "too short" : out.problem;
        out.unread = in.take_rest();
    } else {
        out.body = opaque{in.take_rest()};
    }
    out.problem = problem.empty() ? out.problem : problem;
    return out;
}

/// Whether headers and lengths chain the packets up to the last byte.
bool is_whole(byte_view data) {
    while (!data.empty()) {
        std::optional<header> const head = header_of(data);
        if (!head || head->length > data.size())
            return false;
        data = data.subspan(head->length);
    }
    return true;
}

/// E flag and a small index before the tag, when there is no MKI.
bool has_srtcp_index(byte_view data) {
    byte_view const index = data.last(srtcp_trailer_bytes).first(2);
    return index[0] == 0x80 && index[1] == 0;
}

}  // namespace

std::string type_name(std::uint8_t type) {
    return is_known(type) ? rtcp::packet_type_names[index_of(type)] : std::to_string(type);
}

std::vector<packet> parse_compound(byte_view data) {
    std::vector<packet> packets;
    while (!data.empty()) {
        std::optional<header> const head = header_of(data);
        if (!head) {
            packets.push_back({0, opaque{}, "no RTCP header", {data.begin(), data.end()}});
            break;
        }
        std::size_t const length = std::min(head->length, data.size());
        packets.push_back(parse_one(*head, data.first(length)));
        data = data.subspan(length);
    }
    return packets;
}

bool looks_encrypted(byte_view data) {
    std::optional<header> const first = header_of(data);
    if (!first || !is_known(first->type) || first->length + srtcp_trailer_bytes > data.size() || is_whole(data))
        return false;
    std::optional<header> const second = header_of(data.subspan(first->length));
    return !second || !is_known(second->type) || has_srtcp_index(data);
}

}  // namespace rtcp_view
