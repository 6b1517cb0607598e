// The quality of calls out of their reports.

#include "tools/rtcp/call_quality.h"

#include <gtest/gtest.h>

#include "lib/rtcp_numbers.h"
#include "tests/tools/rtcp/compounds.h"
#include "tools/rtcp/packet.h"
#include "tools/rtcp/show.h"

using namespace rtcp_view;

namespace {

constexpr std::uint32_t ours = 0x11111111, theirs = 0x22222222;

packet report_from(std::uint32_t ssrc, std::uint32_t ntp_middle, report_block const& block) {
    report r;
    r.ssrc = ssrc;
    r.sender = sender_info{{ntp_middle >> 16, ntp_middle << 16}, 0, 50, 8000};
    r.blocks = {block};
    return {rtcp::packet_type::sender_report, r};
}

TEST(call_quality, round_trip_is_the_time_away_less_the_delay_at_the_peer) {
    struct {
        std::uint32_t answers;
        std::uint32_t delay;
        std::int64_t arrival_ms;
        nlohmann::json round_trip_ms;
    } const cases[] = {
        {0x00010000, 0x8000, 1540, 40.0},     // to the first report, 500 ms later
        {0x00030000, 0x4000, 3360, 110.0},    // to the second one
        {0x00030000, 0x8000, 3360, 0.0},      // clocks disagree: no negative time
        {0x00040000, 0x8000, 3360, nullptr},  // nothing of ours
        {0, 0, 3360, nullptr},                // the peer had heard nothing
    };
    for (auto const& one : cases) {
        quality_tracker tracker;
        for (unsigned const s : {1U, 3U})
            tracker.add({3, "id", false, true, 1000 * s, {report_from(ours, s << 16, {theirs})}});
        report_block const answer{ours, 0, 0, 0, 0, one.answers, one.delay};
        tracker.add({3, "id", true, true, one.arrival_ms, {report_from(theirs, 7, answer)}});
        auto const q = to_json(tracker.calls().at(0));
        EXPECT_EQ(nlohmann::json(q["round_trip_ms"]), one.round_trip_ms) << one.answers;
        EXPECT_EQ(nlohmann::json(q["round_trip_max_ms"]), one.round_trip_ms) << one.answers;
    }
}

TEST(call_quality, who_says_what) {
    quality_tracker tracker;
    std::vector<packet> const compound = parse_compound(whole_compound());
    tracker.add({0, "a", false, true, 0, compound});
    tracker.add({0, "a", false, true, 0, compound});
    tracker.add({0, "a", true, true, 0, {report_from(theirs, 7, {0x33333333, 255})}});  // of another stream
    tracker.add({0, "a", true, true, 0, {report_from(theirs, 7, {ours, 64, 5, 0, 80})}});
    tracker.add({0, "a", true, false, 0, {}});
    auto const q = to_json(tracker.calls().at(0));
    auto const expected = nlohmann::json::parse(R"({"reports_sent": 2, "reports_received": 3,
        "reports_unreadable": 1, "sent_packets": 100, "sent_octets": 16000, "peer_sent_packets": 50,
        "peer_loss_percent": 25.0, "peer_lost": 5, "peer_jitter_ms": 10.0, "own_loss_percent": 25.0, "own_lost": -1,
        "own_xr_lost": 6, "own_xr_duplicates": 2, "own_xr_loss_percent": 50.0, "own_xr_discard_percent": 25.0,
        "own_xr_burst_ms": 100, "own_xr_gap_ms": 5000, "own_xr_jb_nominal_ms": 40, "own_xr_jb_maximum_ms": 60,
        "peer_xr_lost": null, "round_trip_ms": null})");
    for (auto const& [name, value] : expected.items())
        EXPECT_EQ(nlohmann::json(q.at(name)), value) << name;
    tracker.call_opened(0);
    tracker.add({0, "a", false, true, 0, compound});
    std::string const table = to_table(tracker.calls());
    for (char const* row : {"\nreports_sent                          2         1\n",
                            "\npeer_lost                             5         -\n"})
        EXPECT_NE(table.find(row), std::string::npos) << table;
    EXPECT_EQ(table.find("peer_xr_lost"), std::string::npos) << table;
    EXPECT_EQ(to_table({}), "");
}

}  // namespace
