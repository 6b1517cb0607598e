#include "tools/rtcp/call_quality.h"

#include <algorithm>

#include "lib/rtcp_numbers.h"

namespace rtcp_view {
namespace {

/// A peer answers with its next report, seconds later at most.
constexpr std::size_t remembered_reports = 16;

/// A peer may report on several streams; only what it says of ours counts. Our own reports have one stream only.
bool about_us(std::uint32_t ssrc, bool received, std::optional<std::uint32_t> const& ours) {
    return !received || ssrc == ours;
}

}  // namespace

quality_tracker::tracked& quality_tracker::find(rtcp_observation const& seen) {
    auto const same = [&](tracked const& one) {
        return !one.over && one.quality.call == seen.call && one.quality.call_id == seen.call_id;
    };
    auto const known = std::ranges::find_if(known_calls, same);
    if (known != known_calls.end())
        return *known;
    tracked& fresh = known_calls.emplace_back();
    fresh.quality.call = seen.call;
    fresh.quality.call_id = seen.call_id;
    fresh.quality.own.counts_losses = false;
    return fresh;
}

void quality_tracker::call_opened(unsigned call) {
    for (tracked& one : known_calls)
        one.over = one.over || one.quality.call == call;
}

void quality_tracker::add(rtcp_observation const& seen) {
    tracked& one = find(seen);
    ++(seen.received ? one.quality.reports_received : one.quality.reports_sent);
    if (!seen.readable) {
        ++one.quality.reports_unreadable;
        return;
    }
    for (packet const& part : seen.packets)
        if (auto const* r = std::get_if<report>(&part.body))
            add_report(one, *r, seen);
        else if (auto const* x = std::get_if<extended_report>(&part.body))
            add_blocks(one, *x, seen.received);
        else if (auto const* s = std::get_if<source_description>(&part.body); s != nullptr && seen.received)
            note_origin(one, *s);
    if (auto const codec = codecs.find(seen.call); codec != codecs.end())
        one.quality.codec = codec->second;
}

/// Whether the far end is an fxsmedia, by the canonical name that it has.
void quality_tracker::note_origin(tracked& one, source_description const& s) {
    for (sdes_chunk const& chunk : s.chunks)
        for (sdes_item const& item : chunk.items)
            if (item.type == rtcp::cname_item)
                one.quality.peer.counts_losses = item.text != "VELK";
}

void quality_tracker::add_report(tracked& one, report const& r, rtcp_observation const& seen) {
    if (r.sender)
        (seen.received ? one.quality.peer_sent : one.quality.sent) = r.sender;
    if (!seen.received && r.sender) {
        one.ssrc = r.ssrc;
        one.sent.push_back({r.sender->sent.middle(), seen.time_ms});
        if (one.sent.size() > remembered_reports)
            one.sent.pop_front();
    }
    for (report_block const& block : r.blocks) {
        if (about_us(block.ssrc, seen.received, one.ssrc)) {
            (seen.received ? one.quality.peer : one.quality.own).reported = block;
            if (seen.received)
                note_round_trip(one, block, seen.time_ms);
        }
    }
}

/// RFC 3550 section 6.4.1, but by the times of the two copies instead of the NTP times: no clock needs to be right.
void quality_tracker::note_round_trip(tracked& one, report_block const& block, std::int64_t arrival_ms) {
    auto const answered = std::ranges::find(one.sent, block.last_sr, &sent_report::ntp_middle);
    if (block.last_sr == 0 || answered == one.sent.end())
        return;
    double const away_ms = static_cast<double>(arrival_ms - answered->time_ms);
    double const trip_ms = std::max(0.0, away_ms - block.delay * 1000.0 / 65536);
    one.quality.round_trip_ms = trip_ms;
    one.quality.round_trip_max_ms = std::max(one.quality.round_trip_max_ms.value_or(0), trip_ms);
}

void quality_tracker::add_blocks(tracked& one, extended_report const& x, bool received) {
    reception_quality& side = received ? one.quality.peer : one.quality.own;
    for (xr_block const& block : x.blocks) {
        if (auto const* metrics = std::get_if<voip_metrics>(&block.content);
            metrics != nullptr && about_us(metrics->ssrc, received, one.ssrc))
            side.metrics = *metrics;
        auto const* summary = std::get_if<statistics_summary>(&block.content);
        if (summary == nullptr || !about_us(summary->range.ssrc, received, one.ssrc))
            continue;
        if ((summary->flags & rtcp::summary_has_loss) != 0)
            side.lost = side.lost.value_or(0) + summary->lost;
        if ((summary->flags & rtcp::summary_has_duplicates) != 0)
            side.duplicates = side.duplicates.value_or(0) + summary->duplicates;
    }
}

std::vector<call_quality> quality_tracker::calls() const {
    std::vector<call_quality> all;
    for (tracked const& one : known_calls)
        all.push_back(one.quality);
    return all;
}

}  // namespace rtcp_view
