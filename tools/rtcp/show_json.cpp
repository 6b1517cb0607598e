#include <array>
#include <cmath>
#include <ctime>

#include "lib/rtcp_numbers.h"
#include "lib/wire.h"
#include "tools/rtcp/show.h"

namespace rtcp_view {
namespace {

using nlohmann::ordered_json;

constexpr std::uint32_t ntp_of_1970 = 2208988800;  ///< RFC 868

std::string hex32(std::uint32_t value) {
    std::array<std::uint8_t, 4> word;
    wire::put32(word.data(), value);
    return protocol::to_hex(word);
}

std::string hex16(std::uint16_t value) {
    return hex32(value).substr(4);
}

/// In UTC; the 32 bits of seconds are taken as the years 1970 to 2106.
std::string calendar(ntp_time const& time) {
    std::time_t const seconds = static_cast<std::uint32_t>(time.seconds - ntp_of_1970);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    auto const ms = static_cast<std::uint32_t>(std::uint64_t{time.fraction} * 1000 >> 32);
    return std::string(text.data()) + "." + std::to_string(1000 + ms).substr(1) + "Z";
}

void add_time(ordered_json& out, ntp_time const& time) {
    out["ntp"] = calendar(time);
    out["ntp_hex"] = hex32(time.seconds) + hex32(time.fraction);
}

ordered_json shown_block(report_block const& b) {
    return {{"ssrc", hex32(b.ssrc)},
            {"loss_percent", percent(b.fraction_lost)},
            {"lost", b.lost},
            {"highest_sequence", b.highest_sequence},
            {"jitter", b.jitter},
            {"lsr", hex32(b.last_sr)},
            {"dlsr_ms", ms_of_delay(b.delay)}};
}

std::string run_text(std::uint16_t chunk) {
    if ((chunk & 0x8000) == 0)
        return std::to_string(chunk & 0x3FFF) + ((chunk & 0x4000) != 0 ? "x1" : "x0");
    std::string bits;
    for (unsigned bit = 0x4000; bit != 0; bit >>= 1)
        bits += (chunk & bit) != 0 ? '1' : '0';
    return bits;
}

void add_range(ordered_json& out, sequence_range const& range) {
    out["ssrc"] = hex32(range.ssrc);
    out["thinning"] = range.thinning;
    out["begin"] = range.begin;
    out["end"] = range.end;
}

ordered_json measured(unsigned value) {
    return value == rtcp::unavailable ? ordered_json() : ordered_json(value);
}

ordered_json measured_dbm(unsigned value) {
    return value == rtcp::unavailable ? ordered_json() : ordered_json(static_cast<std::int8_t>(value));
}

struct block_shower {
    ordered_json& out;

    void operator()(opaque const& o) const { out["data"] = protocol::to_hex(o.data); }
    void operator()(run_lengths const& r) const {
        add_range(out, r.range);
        ordered_json chunks = ordered_json::array();
        for (std::uint16_t const chunk : r.chunks)
            chunks.push_back(run_text(chunk));
        out["chunks"] = std::move(chunks);
    }
    void operator()(receipt_times const& r) const {
        out["ssrc"] = hex32(r.ssrc);
        out["thinning"] = r.thinning;
        ordered_json groups = ordered_json::array();
        for (receipt_times::group const& group : r.groups)
            groups.push_back({{"begin", group.begin}, {"end", group.end}, {"times", group.times}});
        out["groups"] = std::move(groups);
    }
    void operator()(reference_time const& r) const { add_time(out, r.sent); }
    void operator()(reference_answers const& r) const {
        ordered_json answers = ordered_json::array();
        for (auto const& one : r.answers) {
            answers.push_back(
                {{"ssrc", hex32(one.ssrc)}, {"lrr", hex32(one.last_rr)}, {"dlrr_ms", ms_of_delay(one.delay)}});
        }
        out["answers"] = std::move(answers);
    }
    void operator()(statistics_summary const& s) const;
    void operator()(voip_metrics const& v) const;
};

void block_shower::operator()(statistics_summary const& s) const {
    static constexpr std::array<char const*, 4> parts{"min", "max", "mean", "deviation"};
    out["ssrc"] = hex32(s.range.ssrc);
    out["begin"] = s.range.begin;
    out["end"] = s.range.end;
    if ((s.flags & rtcp::summary_has_loss) != 0)
        out["lost"] = s.lost;
    if ((s.flags & rtcp::summary_has_duplicates) != 0)
        out["duplicates"] = s.duplicates;
    for (std::size_t i = 0; i < parts.size() && (s.flags & rtcp::summary_has_jitter) != 0; ++i)
        out[std::string("jitter_") + parts[i]] = s.jitter[i];
    for (std::size_t i = 0; i < parts.size() && (s.flags & s.has_ttl) != 0; ++i)
        out[std::string("ttl_") + parts[i]] = s.ttl[i];
}

void block_shower::operator()(voip_metrics const& v) const {
    out.update({{"ssrc", hex32(v.ssrc)},
                {"loss_percent", percent(v.loss_rate)},
                {"discard_percent", percent(v.discard_rate)},
                {"burst_density_percent", percent(v.burst_density)},
                {"gap_density_percent", percent(v.gap_density)},
                {"burst_ms", v.burst_ms},
                {"gap_ms", v.gap_ms},
                {"round_trip_ms", v.round_trip_ms},
                {"end_system_delay_ms", v.end_system_delay_ms},
                {"signal_dbm", measured_dbm(v.levels[0])},
                {"noise_dbm", measured_dbm(v.levels[1])},
                {"rerl_db", measured(v.levels[2])},
                {"gmin", v.gmin},
                {"r_factor", measured(v.scores[0])},
                {"external_r_factor", measured(v.scores[1])},
                {"mos_lq_tenths", measured(v.scores[2])},
                {"mos_cq_tenths", measured(v.scores[3])}});
    if (v.by_fxsmedia())
        out["round_trip_again_ms"] = v.configuration;
    else
        out["configuration"] = hex16(v.configuration);
    out["jb_nominal_ms"] = v.jb_nominal_ms;
    out["jb_maximum_ms"] = v.jb_maximum_ms();
    out["jb_maximum_order"] = v.by_fxsmedia() ? "low byte first" : "high byte first";
    out["jb_absolute_ms"] = v.jb_absolute_ms;
}

char const* block_name(std::uint8_t type) {
    static constexpr std::array<char const*, 8> names{"unknown", "loss-rle", "dup-rle",      "rcpt-times",
                                                      "rrtr",    "dlrr",     "stat-summary", "voip-metrics"};
    return type < names.size() ? names[type] : names[0];
}

void add_trouble(ordered_json& out, std::string const& problem, protocol::bytes const& unread) {
    if (!problem.empty())
        out["problem"] = problem;
    if (!unread.empty())
        out["unread"] = protocol::to_hex(unread);
}

ordered_json shown_block(xr_block const& block) {
    ordered_json out{{"block", block_name(block.type)}};
    auto const* bytes = std::get_if<opaque>(&block.content);
    if (bytes == nullptr) {
        std::visit(block_shower{out}, block.content);
    } else if (!bytes->data.empty() || block.problem.empty()) {
        out["number"] = block.type;
        out["specific"] = block.specific;
        block_shower{out}(*bytes);
    }
    add_trouble(out, block.problem, block.unread);
    return out;
}

std::string item_name(std::uint8_t type) {
    static constexpr std::array<char const*, 9> names{"",    "cname", "name", "email", "phone",
                                                      "loc", "tool",  "note", "priv"};
    return type > 0 && type < names.size() ? names[type] : "item" + std::to_string(type);
}

struct body_shower {
    ordered_json& out;

    void operator()(opaque const& o) const {
        if (!o.data.empty())
            out["data"] = protocol::to_hex(o.data);
    }
    void operator()(report const& r) const;
    void operator()(source_description const& s) const {
        ordered_json chunks = ordered_json::array();
        for (sdes_chunk const& chunk : s.chunks) {
            ordered_json shown{{"ssrc", hex32(chunk.ssrc)}};
            for (sdes_item const& item : chunk.items)
                shown[item_name(item.type)] = item.text;
            chunks.push_back(std::move(shown));
        }
        out["chunks"] = std::move(chunks);
    }
    void operator()(bye const& b) const {
        ordered_json sources = ordered_json::array();
        for (std::uint32_t const ssrc : b.sources)
            sources.push_back(hex32(ssrc));
        out["sources"] = std::move(sources);
        if (b.reason)
            out["reason"] = *b.reason;
    }
    void operator()(application const& a) const {
        out.update(
            {{"ssrc", hex32(a.ssrc)}, {"name", a.name}, {"subtype", a.subtype}, {"data", protocol::to_hex(a.data)}});
    }
    void operator()(extended_report const& x) const {
        out["ssrc"] = hex32(x.ssrc);
        out["blocks"] = ordered_json::array();
        for (xr_block const& block : x.blocks)
            out["blocks"].push_back(shown_block(block));
    }
};

void body_shower::operator()(report const& r) const {
    out["ssrc"] = hex32(r.ssrc);
    if (r.sender) {
        add_time(out, r.sender->sent);
        out["rtp_timestamp"] = r.sender->rtp_timestamp;
        out["packets"] = r.sender->packets;
        out["octets"] = r.sender->octets;
    }
    out["announced_blocks"] = r.announced;
    if (r.blockless) {
        out["note"] = "no report block, only its end";
        out["lsr"] = hex32(r.blockless->last_sr);
        out["dlsr_ms"] = ms_of_delay(r.blockless->delay);
    }
    out["blocks"] = ordered_json::array();
    for (report_block const& block : r.blocks)
        out["blocks"].push_back(shown_block(block));
    if (!r.extension.empty())
        out["extension"] = protocol::to_hex(r.extension);
}

}  // namespace

double one_digit(double value) {
    return std::round(value * 10) / 10;
}

double percent(unsigned part_of_256) {
    return one_digit(part_of_256 * 100.0 / 256);
}

double ms_of_delay(std::uint32_t delay) {
    return one_digit(delay * 1000.0 / 65536);
}

ordered_json to_json(packet const& shown) {
    ordered_json out{{"type", shown.type == 0 ? "malformed" : type_name(shown.type)}};
    std::visit(body_shower{out}, shown.body);
    add_trouble(out, shown.problem, shown.unread);
    return out;
}

ordered_json to_json(std::vector<packet> const& compound) {
    ordered_json out = ordered_json::array();
    for (packet const& one : compound)
        out.push_back(to_json(one));
    return out;
}

}  // namespace rtcp_view
