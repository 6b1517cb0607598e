// RTCP packets as text and JSON, byte for byte, what malformed ones come out as, and the quality of calls out of their
// reports. Random packets: fuzz/fuzz_tools.cpp.

#include <gtest/gtest.h>

#include <sstream>

#include "lib/protocol.h"
#include "lib/rtcp_numbers.h"
#include "media/e_model.h"
#include "tools/rtcp/call_quality.h"
#include "tools/rtcp/e_model.h"
#include "tools/rtcp/packet.h"
#include "tools/rtcp/show.h"

using namespace rtcp_view;
using protocol::bytes;

namespace {

/// As the process sends it, with every block it knows.
bytes const whole_compound =
    protocol::from_hex(
        "81c8000c 11111111 83aa7e80 80000000 000003e8 00000064 00003e80"  // 1970-01-01 00:00:00.5
        "22222222 40ffffff 00010005 00000050 7e808000 00010000"           // 25 %, -1 lost, DLSR 1 s
        "81ca0003 11111111 0104 56454c4b 00 00"
        "80cf002b 11111111"
        "01000004 22222222 00010064 406390aa 4001 0000"
        "02030003 22222222 00000010 80030000"
        "03000006 22222222 00010003 000000a0 00000140 00080009 00000780"
        "06e00009 22222222 00010064 00000003 00000001 00000002 00000009 00000004 00000001 00000000"
        "07000008 22222222 80400201 00641388 00140000 7f7f7f10 00000000 0014 0028 3c00 ffff"
        "04000002 83aa7e80 40000000"
        "05000003 22222222 7e808000 00008000")
        .value();

/// After each ">" the bytes, below them what they are shown as.
std::string const shown_as = R"(
>WHOLE
SR ssrc=11111111 ntp=1970-01-01T00:00:00.500Z ntp_hex=83aa7e8080000000 rtp_timestamp=1000 packets=100 octets=16000 announced_blocks=1
  block ssrc=22222222 loss_percent=25.0 lost=-1 highest_sequence=65541 jitter=80 lsr=7e808000 dlsr_ms=1000.0
SDES
  chunk ssrc=11111111 cname=VELK
XR ssrc=11111111
  loss-rle ssrc=22222222 thinning=0 begin=1 end=100 chunks=99x1,001000010101010,1x1
  dup-rle ssrc=22222222 thinning=3 begin=0 end=16 chunks=000000000000011
  rcpt-times ssrc=22222222 thinning=0
    group begin=1 end=3 times=160,320
    group begin=8 end=9 times=1920
  stat-summary ssrc=22222222 begin=1 end=100 lost=3 duplicates=1 jitter_min=2 jitter_max=9 jitter_mean=4 jitter_deviation=1
  voip-metrics ssrc=22222222 loss_percent=50.0 discard_percent=25.0 burst_density_percent=0.8 gap_density_percent=0.4 burst_ms=100 gap_ms=5000 round_trip_ms=20 end_system_delay_ms=0 signal_dbm=- noise_dbm=- rerl_db=- gmin=16 r_factor=0 external_r_factor=0 mos_lq_tenths=0 mos_cq_tenths=0 round_trip_again_ms=20 jb_nominal_ms=40 jb_maximum_ms=60 jb_maximum_order="low byte first" jb_absolute_ms=65535
  rrtr ntp=1970-01-01T00:00:00.250Z ntp_hex=83aa7e8040000000
  dlrr
    answer ssrc=22222222 lrr=7e808000 dlrr_ms=500.0
>80
malformed problem="no RTCP header" unread=80
>40c80000
malformed problem="no RTCP header" unread=40c80000
>81c80008 11111111 83aa7e80 00000000 00000000 00000000 00000000 7e808000 00008000
SR ssrc=11111111 ntp=1970-01-01T00:00:00.000Z ntp_hex=83aa7e8000000000 rtp_timestamp=0 packets=0 octets=0 announced_blocks=1 note="no report block, only its end" lsr=7e808000 dlsr_ms=500.0
>80c90001 11111111 40
RR ssrc=11111111 announced_blocks=0
malformed problem="no RTCP header" unread=40
>82c90002 11111111 00000001
RR ssrc=11111111 announced_blocks=2 problem="0 of 2 report blocks" unread=00000001
>80c90002 11111111 abcdef01
RR ssrc=11111111 announced_blocks=0 extension=abcdef01
>80c80001 11111111
SR problem="too short" unread=11111111
>80c90003 11111111
RR ssrc=11111111 announced_blocks=0 problem="8 of 16 bytes"
>81ca0004 11111111 0102 6120 0602 22ff 0801 7a00
SDES
  chunk ssrc=11111111 cname="a " tool="\"\xff" priv=z
>81ca0002 11111111 01ff6100
SDES problem="too short"
  chunk ssrc=11111111 cname="a\x00"
>82cb0004 11111111 22222222 05 6c6f7320 79 0000
BYE sources=11111111,22222222 reason="los y"
>81cb0000
BYE problem="too short"
>83cc0003 11111111 74657374 0102ff00
APP ssrc=11111111 name=test subtype=3 data=0102ff00
>a1cb0002 11111111 00000004
BYE sources=11111111
>a1cb0001 11111111
BYE sources=11111111 problem="padding of 17 bytes does not fit"
>80d20001 deadbeef
210 data=deadbeef
>80cf0003 11111111 63050001 deadbeef
XR ssrc=11111111
  unknown number=99 specific=5 data=deadbeef
>80cf0003 11111111 07000001 deadbeef
XR ssrc=11111111
  voip-metrics problem="too short" unread=deadbeef
>80cf0003 11111111 04000009 83aa7e80
XR ssrc=11111111
  rrtr problem="8 of 40 bytes" unread=83aa7e80
>80cf0006 11111111 03010004 22222222 fffe0003 00000001 00000002
XR ssrc=11111111
  rcpt-times ssrc=22222222 thinning=1 problem="too short"
    group begin=65534 end=3 times=1,2
>80cf000a 11111111 07000008 22222222 00000000 00000000 00140000 ec880010 5d7f2b7f 1000 0028 003c ffff
XR ssrc=11111111
  voip-metrics ssrc=22222222 loss_percent=0.0 discard_percent=0.0 burst_density_percent=0.0 gap_density_percent=0.0 burst_ms=0 gap_ms=0 round_trip_ms=20 end_system_delay_ms=0 signal_dbm=-20 noise_dbm=-120 rerl_db=0 gmin=16 r_factor=93 external_r_factor=- mos_lq_tenths=43 mos_cq_tenths=- configuration=1000 jb_nominal_ms=40 jb_maximum_ms=60 jb_maximum_order="high byte first" jb_absolute_ms=65535
)";

TEST(rtcp_view, packets_with_every_block_and_malformed_ones) {
    std::istringstream cases(shown_as.substr(2));
    int count = 0;
    for (std::string one; std::getline(cases, one, '>'); ++count) {
        std::size_t const end = one.find('\n');
        std::string const hex = one.substr(0, end);
        bytes const data = hex == "WHOLE" ? whole_compound : protocol::from_hex(hex).value();
        EXPECT_EQ(to_text(parse_compound(data), 0), one.substr(end + 1)) << one;
    }
    EXPECT_EQ(count, 22);
}

TEST(rtcp_view, every_truncation_says_so) {
    bytes cut = whole_compound;
    while (!cut.empty()) {
        cut.pop_back();
        bool const between_packets = cut.empty() || cut.size() == 52 || cut.size() == 68;
        std::vector<packet> const packets = parse_compound(cut);
        EXPECT_EQ(packets.empty() || packets.back().problem.empty(), between_packets) << cut.size();
        EXPECT_EQ(to_json(packets).size(), packets.size());
        EXPECT_FALSE(looks_encrypted(cut)) << cut.size();
    }
}

constexpr std::uint32_t ours = 0x11111111, theirs = 0x22222222;

packet report_from(std::uint32_t ssrc, std::uint32_t ntp_middle, report_block const& block) {
    report r;
    r.ssrc = ssrc;
    r.sender = sender_info{{ntp_middle >> 16, ntp_middle << 16}, 0, 50, 8000};
    r.blocks = {block};
    return {rtcp::packet_type::sender_report, r};
}

TEST(call_quality, round_trip_is_the_time_away_less_the_delay_at_the_peer) {
    std::tuple<std::uint32_t, std::uint32_t, std::int64_t, nlohmann::json> const cases[] = {
        {0x00010000, 0x8000, 1540, 40.0},     // to the first report, 500 ms later
        {0x00030000, 0x4000, 3360, 110.0},    // to the second one
        {0x00030000, 0x8000, 3360, 0.0},      // clocks disagree: no negative time
        {0x00040000, 0x8000, 3360, nullptr},  // nothing of ours
        {0, 0, 3360, nullptr},                // the peer had heard nothing
    };
    for (auto const& [answers, delay, arrival_ms, round_trip_ms] : cases) {
        quality_tracker tracker;
        for (unsigned const s : {1U, 3U})
            tracker.add({3, "id", false, true, 1000 * s, {report_from(ours, s << 16, {theirs})}});
        report_block const answer{ours, 0, 0, 0, 0, answers, delay};
        tracker.add({3, "id", true, true, arrival_ms, {report_from(theirs, 7, answer)}});
        auto const q = to_json(tracker.calls().at(0));
        for (char const* name : {"round_trip_ms", "round_trip_max_ms"})
            EXPECT_EQ(nlohmann::json(q[name]), round_trip_ms) << name << " " << answers;
    }
}

/// MOS of R by ITU-T G.107 table B.1; Ie and Bpl by G.113. At 400 ms most users are dissatisfied (G.114: R from 50 to
/// 70).
TEST(call_quality, rating_follows_the_e_model) {
    struct {
        int codec;
        double loss_percent, one_way_ms, r, r_tolerance, mos;
    } const table[] = {
        {protocol::codec_number::pcma, 0, 0, 93.2, 0.1, 4.41},  {protocol::codec_number::g729, 0, 0, 82.2, 0.1, 4.11},
        {protocol::codec_number::pcmu, 2, 0, 63.05, 0.1, 3.25}, {protocol::codec_number::g729, 3, 0, 70.75, 0.1, 3.63},
        {protocol::codec_number::pcma, 0, 400, 60, 10, 3.1},
    };
    for (auto const& row : table) {
        transmission_rating const rating = rate(row.codec, row.loss_percent, row.one_way_ms);
        EXPECT_NEAR(rating.r.value_or(0), row.r, row.r_tolerance) << row.codec << " " << row.loss_percent;
        EXPECT_NEAR(rating.mos, row.mos, row.r_tolerance / 10 * 5) << row.codec << " " << row.loss_percent;
    }
    EXPECT_FALSE(rate(protocol::codec_number::g722, 0, 0).r);
    EXPECT_FALSE(rate(protocol::codec_number::gsm, 1, 0).r) << "no robustness against losses is given";
}

TEST(call_quality, who_says_what) {
    quality_tracker tracker;
    std::vector<packet> const compound = parse_compound(whole_compound);
    tracker.add({0, "a", false, true, 0, compound});
    tracker.add({0, "a", false, true, 0, compound});
    tracker.add({0, "a", true, true, 0, {report_from(theirs, 7, {0x33333333, 255})}});  // of another stream
    tracker.add({0, "a", true, true, 0, {report_from(theirs, 7, {ours, 64, 5, 0, 80})}});
    tracker.add({0, "a", true, false, 0, {}});
    auto const q = to_json(tracker.calls().at(0));
    auto const expected = nlohmann::json::parse(R"({"reports_sent": 2, "reports_received": 3,
        "reports_unreadable": 1, "sent_packets": 100, "sent_octets": 16000, "peer_sent_packets": 50,
        "peer_loss_percent": 25.0, "peer_lost": 5, "peer_jitter_ms": 10.0, "own_loss_percent": null, "own_lost": null,
        "own_xr_lost": 6, "own_xr_duplicates": 2, "own_xr_loss_percent": 50.0, "own_xr_discard_percent": 25.0,
        "own_xr_burst_ms": 100, "own_xr_gap_ms": 5000, "own_xr_jb_nominal_ms": 40, "own_xr_jb_maximum_ms": 60,
        "own_xr_burst_density_percent": null, "own_xr_burst_lost_per_s": 7.8, "own_r": null,
        "own_r_unknown": "no media command was seen that chose the codec",
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

// The process has a table and whole numbers.
TEST(e_model, the_process_rates_as_the_tools_do) {
    for (int codec = protocol::codec_number::pcmu; codec <= protocol::codec_number::g726; codec++)
        for (int loss = 0; loss < 256; loss += 3)
            for (int ms = 0; ms < 1000; ms += 7) {
                rtcp_view::transmission_rating const exact = rtcp_view::rate(codec, loss / 2.56, ms);
                int const rating = e_model::rating(codec, loss, ms);
                ASSERT_EQ(rating == e_model::unknown, !exact.r) << codec;
                ASSERT_TRUE(!exact.r || std::abs(rating - *exact.r * 10) < 8) << codec << " " << loss << " " << ms;
                ASSERT_TRUE(!exact.r || std::abs(e_model::opinion(rating) - exact.mos * 10) < 1);
            }
}

}  // namespace
