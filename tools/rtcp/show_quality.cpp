#include "tools/rtcp/show_quality.h"

#include <algorithm>

#include "tools/protocol/quoted.h"
#include "tools/rtcp/show.h"

namespace rtcp_view {
namespace {

using nlohmann::ordered_json;

constexpr double rtp_units_per_ms = 8;  // all codecs here have an RTP clock of 8 kHz (RFC 3551 section 6)

template <class T, class Get>
ordered_json known(const std::optional<T>& value, const Get& get) {
    return value ? ordered_json(get(*value)) : ordered_json();
}

template <class T>
ordered_json known(const std::optional<T>& value) {
    return value ? ordered_json(*value) : ordered_json();
}

void add_reception(ordered_json& out, const std::string& who, const reception_quality& q) {
    const auto add = [&](const char* name, ordered_json value) { out[who + name] = std::move(value); };
    add("_loss_percent", known(q.reported, [](const auto& b) { return percent(b.fraction_lost); }));
    add("_lost", known(q.reported, [](const auto& b) { return b.lost; }));
    add("_jitter_ms",
        known(q.reported, [](const auto& b) { return one_digit(b.jitter / rtp_units_per_ms); }));
    add("_xr_lost", known(q.lost));
    add("_xr_duplicates", known(q.duplicates));
    const auto metric = [&](const char* name, const auto& get) { add(name, known(q.metrics, get)); };
    metric("_xr_loss_percent", [](const auto& m) { return percent(m.loss_rate); });
    metric("_xr_discard_percent", [](const auto& m) { return percent(m.discard_rate); });
    metric("_xr_burst_ms", [](const auto& m) { return m.burst_ms; });
    metric("_xr_burst_density_percent", [](const auto& m) { return percent(m.burst_density); });
    metric("_xr_gap_ms", [](const auto& m) { return m.gap_ms; });
    metric("_xr_gap_density_percent", [](const auto& m) { return percent(m.gap_density); });
    metric("_xr_jb_nominal_ms", [](const auto& m) { return m.jb_nominal_ms; });
    metric("_xr_jb_maximum_ms", [](const auto& m) { return m.jb_maximum_ms(); });
}

std::string cell(const ordered_json& value) {
    return value.is_null()     ? "-"
           : value.is_string() ? protocol::quoted(value.get_ref<const std::string&>())
                               : value.dump();
}

std::string padded_left(const std::string& text, std::size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

}  // namespace

ordered_json to_json(const call_quality& call) {
    const auto packets = [](const sender_info& info) { return info.packets; };
    const auto octets = [](const sender_info& info) { return info.octets; };
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

std::string to_table(const std::vector<call_quality>& calls) {
    std::vector<ordered_json> columns;
    std::size_t label_width = 0;
    std::size_t width = 8;
    for (const call_quality& call : calls) {
        columns.push_back(to_json(call));
        for (const auto& [name, value] : columns.back().items()) {
            label_width = std::max(label_width, name.size());
            width = std::max(width, cell(value).size());
        }
    }
    if (columns.empty()) {
        return "";
    }
    std::string table;
    for (const auto& item : columns.front().items()) {
        const std::string& name = item.key();
        if (std::ranges::all_of(columns, [&](const auto& column) { return column[name].is_null(); })) {
            continue;
        }
        table += name + std::string(label_width - name.size(), ' ');
        for (const ordered_json& column : columns) {
            table += "  " + padded_left(cell(column[name]), width);
        }
        table += '\n';
    }
    return table;
}

}  // namespace rtcp_view
