#include "tools/fxsctl/media_watch.h"

namespace fxsctl {

std::optional<bool> media_watch::stops(way& one, std::uint32_t count) {
    bool const moved = one.count && count != *one.count;
    bool const first = !one.count;
    one.count = count;
    if (first)
        return std::nullopt;
    if (moved) {
        one.runs = true;
        bool const resumed = one.stopped;
        one.stopped = false;
        return resumed ? std::optional(false) : std::nullopt;
    }
    if (!one.runs || one.stopped)
        return std::nullopt;
    one.stopped = true;
    return true;
}

std::vector<media_watch::change> media_watch::add(std::uint16_t call, std::vector<rtcp_view::packet> const& sent) {
    std::vector<change> changes;
    auto const look = [&](bool received, std::uint32_t count) {
        if (auto const stopped = stops(known[call][received], count))
            changes.push_back({call, received, *stopped});
    };
    for (rtcp_view::packet const& packet : sent) {
        auto const* report = std::get_if<rtcp_view::report>(&packet.body);
        if (report == nullptr || !report->sender)
            continue;
        look(false, report->sender->packets);
        if (!report->blocks.empty())
            look(true, report->blocks.front().highest_sequence);
    }
    return changes;
}

}  // namespace fxsctl
