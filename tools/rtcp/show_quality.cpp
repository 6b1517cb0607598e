#include "tools/rtcp/show.h"

#include <algorithm>

#include "tools/protocol/bytes.h"
#include "tools/rtcp/e_model.h"

namespace rtcp_view {
namespace {

using nlohmann::ordered_json;

constexpr double rtp_units_per_ms = 8;  ///< all codecs here have an RTP clock of 8 kHz (RFC 3551 section 6)

template <class T, class Get>
ordered_json known(std::optional<T> const& value, Get const& get) {
    return value ? ordered_json(get(*value)) : ordered_json();
}

template <class T>
ordered_json known(std::optional<T> const& value) {
    return value ? ordered_json(*value) : ordered_json();
}

/// RFC 3611 has the lost share of the packets; fxsmedia divides by milliseconds.
void add_density(ordered_json& out, std::string const& name, std::optional<voip_metrics> const& metrics,
                 std::uint8_t voip_metrics::*density) {
    bool const by_time = metrics && metrics->by_fxsmedia();
    out[name + "_density_percent"] = metrics && !by_time ? ordered_json(percent((*metrics).*density)) : ordered_json();
    out[name + "_lost_per_s"] = by_time ? ordered_json(one_digit((*metrics).*density * 1000.0 / 256)) : ordered_json();
}

/// Of what one end hears.
void add_rating(ordered_json& out, std::string const& who, call_quality const& call, reception_quality const& q) {
    transmission_rating rating;
    if (!q.metrics)
        rating.unknown = "no VoIP metrics were reported (--xr voip-metrics)";
    else if (!call.codec)
        rating.unknown = "no media command was seen that chose the codec";
    else if (!call.round_trip_ms)
        rating.unknown = "the round trip is not known";
    else
        rating = rate(*call.codec, std::min(100.0, percent(q.metrics->loss_rate) + percent(q.metrics->discard_rate)),
                      *call.round_trip_ms / 2 + q.metrics->jb_nominal_ms);
    out[who + "_r"] = rating.r ? ordered_json(one_digit(*rating.r)) : ordered_json();
    out[who + "_mos"] = rating.r ? ordered_json(one_digit(rating.mos)) : ordered_json();
    out[who + "_r_unknown"] = rating.r ? ordered_json() : ordered_json(rating.unknown);
}

bool is_reason(std::string const& name) {
    return name.ends_with("_unknown");
}

void add_reception(ordered_json& out, std::string const& who, reception_quality const& q) {
    auto const add = [&](char const* name, ordered_json value) { out[who + name] = std::move(value); };
    std::optional<report_block> const counted = q.counts_losses ? q.reported : std::nullopt;
    add("_loss_percent", known(counted, [](auto const& b) { return percent(b.fraction_lost); }));
    add("_lost", known(counted, [](auto const& b) { return b.lost; }));
    add("_loss_unknown",
        !q.counts_losses ? ordered_json("fxsmedia counts no losses in its report blocks") : ordered_json());
    add("_jitter_ms", known(q.reported, [](auto const& b) { return one_digit(b.jitter / rtp_units_per_ms); }));
    add("_xr_lost", known(q.lost));
    add("_xr_duplicates", known(q.duplicates));
    auto const metric = [&](char const* name, auto const& get) { add(name, known(q.metrics, get)); };
    metric("_xr_loss_percent", [](auto const& m) { return percent(m.loss_rate); });
    metric("_xr_discard_percent", [](auto const& m) { return percent(m.discard_rate); });
    metric("_xr_burst_ms", [](auto const& m) { return m.burst_ms; });
    add_density(out, who + "_xr_burst", q.metrics, &voip_metrics::burst_density);
    metric("_xr_gap_ms", [](auto const& m) { return m.gap_ms; });
    add_density(out, who + "_xr_gap", q.metrics, &voip_metrics::gap_density);
    metric("_xr_jb_nominal_ms", [](auto const& m) { return m.jb_nominal_ms; });
    metric("_xr_jb_maximum_ms", [](auto const& m) { return m.jb_maximum_ms(); });
}

std::string cell(ordered_json const& value) {
    return value.is_null()     ? "-"
           : value.is_string() ? protocol::quoted(value.get_ref<std::string const&>())
                               : value.dump();
}

std::string padded_left(std::string const& text, std::size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

}  // namespace

ordered_json to_json(call_quality const& call) {
    auto const packets = [](sender_info const& info) { return info.packets; };
    auto const octets = [](sender_info const& info) { return info.octets; };
    ordered_json out{{"call", call.call},
                     {"call_id", call.call_id},
                     {"reports_sent", call.reports_sent},
                     {"reports_received", call.reports_received},
                     {"reports_unreadable", call.reports_unreadable},
                     {"sent_packets", known(call.sent, packets)},
                     {"sent_octets", known(call.sent, octets)},
                     {"peer_sent_packets", known(call.peer_sent, packets)},
                     {"peer_sent_octets", known(call.peer_sent, octets)},
                     {"round_trip_ms", known(call.round_trip_ms, one_digit)},
                     {"round_trip_max_ms", known(call.round_trip_max_ms, one_digit)}};
    add_reception(out, "own", call.own);
    add_rating(out, "own", call, call.own);
    add_reception(out, "peer", call.peer);
    add_rating(out, "peer", call, call.peer);
    return out;
}

std::string to_table(std::vector<call_quality> const& calls) {
    std::vector<ordered_json> columns;
    std::size_t label_width = 0;
    std::size_t width = 8;
    for (call_quality const& call : calls) {
        columns.push_back(to_json(call));
        for (auto const& [name, value] : columns.back().items()) {
            label_width = std::max(label_width, name.size());
            width = std::max(width, is_reason(name) ? 0 : cell(value).size());
        }
    }
    if (columns.empty())
        return "";
    std::string table;
    for (auto const& item : columns.front().items()) {
        std::string const& name = item.key();
        if (is_reason(name) || std::ranges::all_of(columns, [&](auto const& column) { return column[name].is_null(); }))
            continue;
        table += name + std::string(label_width - name.size(), ' ');
        for (ordered_json const& column : columns)
            table += "  " + padded_left(cell(column[name]), width);
        table += '\n';
    }
    for (ordered_json const& column : columns)
        for (auto const& [name, value] : column.items())
            if (is_reason(name) && value.is_string())
                table += "call " + column["call"].dump() + ": " + name + ": " + value.get<std::string>() + '\n';
    return table;
}

}  // namespace rtcp_view
