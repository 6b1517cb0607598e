#include <array>
#include <span>

#include "tools/rtcp/byte_reader.h"
#include "tools/rtcp/parse.h"

namespace rtcp_view {
namespace {

using protocol::byte_view;

constexpr std::size_t header_bytes = 4;
constexpr std::size_t sender_info_bytes = 20;
constexpr std::size_t report_block_bytes = 24;
constexpr std::size_t answered_report_bytes = 8;
constexpr std::uint8_t sender_report_type = 200;
constexpr std::size_t srtcp_trailer_bytes = 4 + 10;  // index and tag, at least

struct header {
    std::uint8_t type;
    unsigned count;  // 5 bits
    bool padded;
    std::size_t length;  // of the packet, as it says
};

std::optional<header> header_of(byte_view data) {
    if (data.size() < header_bytes || data[0] >> 6 != 2)
        return std::nullopt;
    std::size_t const words = static_cast<std::size_t>(data[2] << 8 | data[3]) + 1;
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
    bool const by_sender = head.type == sender_report_type;
    if (in.left() < 4 + (by_sender ? sender_info_bytes : 0)) {
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
    while (r.blocks.size() < r.announced && in.left() >= report_block_bytes)
        r.blocks.push_back(take_block(in));
    if (r.blocks.size() == r.announced) {
        r.extension = in.take_rest();
    } else if (by_sender && r.announced == 1 && in.left() == answered_report_bytes) {
        r.blockless = {in.u32(), in.u32()};
    } else {
        out.problem =
            std::to_string(r.blocks.size()) + " of " + std::to_string(r.announced) + " report blocks";
    }
    out.body = std::move(r);
}

// One chunk ends with a zero byte and is filled up to a multiple of 4.
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

struct known_type {
    char const* name;
    void (*parse)(header const& head, byte_reader& in, packet& out);  // null: shown as bytes
};

constexpr std::uint8_t first_known_type = 200;
constexpr std::array<known_type, 8> known_types{{{"SR", parse_report},
                                                 {"RR", parse_report},
                                                 {"SDES", parse_source_description},
                                                 {"BYE", parse_bye},
                                                 {"APP", parse_application},
                                                 {"RTPFB", nullptr},  // RFC 4585
                                                 {"PSFB", nullptr},
                                                 {"XR", parse_extended}}};

known_type const* find_type(std::uint8_t type) {
    std::size_t const index = static_cast<std::size_t>(type) - first_known_type;
    return index < known_types.size() ? &known_types[index] : nullptr;
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
    byte_view body = data.subspan(header_bytes);
    std::string problem;
    if (head.length > data.size())
        problem = std::to_string(data.size()) + " of " + std::to_string(head.length) + " bytes";
    else
        body = without_padding(head, body, problem);
    byte_reader in(body);
    known_type const* known = find_type(head.type);
    if (known != nullptr && known->parse != nullptr) {
        known->parse(head, in, out);
        out.problem = in.ran_out() ? "too short" : out.problem;
        out.unread = in.take_rest();
    } else {
        out.body = opaque{in.take_rest()};
    }
    out.problem = problem.empty() ? out.problem : problem;
    return out;
}

// Whether headers and lengths chain the packets up to the last byte.
bool is_whole(byte_view data) {
    while (!data.empty()) {
        std::optional<header> const head = header_of(data);
        if (!head || head->length > data.size())
            return false;
        data = data.subspan(head->length);
    }
    return true;
}

// E flag and a small index in front of the tag, when there is no MKI.
bool has_srtcp_index(byte_view data) {
    byte_view const index = data.last(srtcp_trailer_bytes).first(2);
    return index[0] == 0x80 && index[1] == 0;
}

}  // namespace

std::string type_name(std::uint8_t type) {
    known_type const* known = find_type(type);
    return known != nullptr ? known->name : std::to_string(type);
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
    if (!first || find_type(first->type) == nullptr || first->length + srtcp_trailer_bytes > data.size() ||
        is_whole(data))
        return false;
    std::optional<header> const second = header_of(data.subspan(first->length));
    return !second || find_type(second->type) == nullptr || has_srtcp_index(data);
}

}  // namespace rtcp_view
