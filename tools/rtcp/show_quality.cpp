#include "tools/rtcp/show.h"

#include <algorithm>

#include "tools/protocol/bytes.h"

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

void add_reception(ordered_json& out, std::string const& who, reception_quality const& q) {
    auto const add = [&](char const* name, ordered_json value) { out[who + name] = std::move(value); };
    add("_loss_percent", known(q.reported, [](auto const& b) { return percent(b.fraction_lost); }));
    add("_lost", known(q.reported, [](auto const& b) { return b.lost; }));
    add("_jitter_ms", known(q.reported, [](auto const& b) { return one_digit(b.jitter / rtp_units_per_ms); }));
    add("_xr_lost", known(q.lost));
    add("_xr_duplicates", known(q.duplicates));
    auto const metric = [&](char const* name, auto const& get) { add(name, known(q.metrics, get)); };
    metric("_xr_loss_percent", [](auto const& m) { return percent(m.loss_rate); });
    metric("_xr_discard_percent", [](auto const& m) { return percent(m.discard_rate); });
    metric("_xr_burst_ms", [](auto const& m) { return m.burst_ms; });
    metric("_xr_burst_density_percent", [](auto const& m) { return percent(m.burst_density); });
    metric("_xr_gap_ms", [](auto const& m) { return m.gap_ms; });
    metric("_xr_gap_density_percent", [](auto const& m) { return percent(m.gap_density); });
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
    add_reception(out, "peer", call.peer);
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
            width = std::max(width, cell(value).size());
        }
    }
    if (columns.empty())
        return "";
    std::string table;
    for (auto const& item : columns.front().items()) {
        std::string const& name = item.key();
        if (std::ranges::all_of(columns, [&](auto const& column) { return column[name].is_null(); }))
            continue;
        table += name + std::string(label_width - name.size(), ' ');
        for (ordered_json const& column : columns)
            table += "  " + padded_left(cell(column[name]), width);
        table += '\n';
    }
    return table;
}

}  // namespace rtcp_view
