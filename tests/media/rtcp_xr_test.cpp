#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/ntp.h"
#include "media/rtcp_xr.h"
#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"

namespace {

using lines = std::vector<std::string>;

std::string const remote = from_hex("A1A2A3A4"), local = from_hex("B1B2B3B4");
constexpr char all_blocks[] = "pkt-loss-rle pkt-dup-rle pkt-rcpt-times rcvr-rtt stat-summary voip-metrics";

std::string report(rtcp_xr& xr, int delay = 0) {
    return to_hex(to_string(xr.get_packet(to_str(remote), to_str(local), delay)));
}

/// The blocks of a report, each in hex.
lines blocks_of(rtcp_xr& xr, int delay = 0) {
    std::string const packet = from_hex(report(xr, delay));
    lines blocks;
    for (std::size_t at = 8, size; at < packet.size(); at += size) {
        size = 4 * std::size_t{get_be16(packet, at + 2)} + 4;
        blocks.push_back(to_hex(packet.substr(at, size)));
    }
    return blocks;
}

/// One packet each 20 ms, without jitter.
void receive(rtcp_xr& xr, std::vector<int> const& sequence) {
    for (int const seq : sequence)
        xr.monitor(seq, 160 * seq, 160 * seq);
}

// Bit by bit these would take minutes.
TEST(rtcp_xr, jumps_over_billions_of_numbers_cost_nothing) {
    constexpr int lowest = -0x7FFFFFFF - 1, highest = 0x7FFFFFFF, far = 0x20000000;
    rtcp_xr xr;
    xr.set_mode(to_str("pkt-loss-rle=400000 pkt-dup-rle=20 voip-metrics"));
    receive(xr, {5});
    report(xr);
    xr.monitor(far, 160, 808);
    lines const blocks = blocks_of(xr);
    constexpr unsigned zeros = far - 6, full_runs = (zeros - 1) / 16383;
    ASSERT_EQ(blocks.size(), 2u) << "the duplicate block fits no thinning";
    EXPECT_EQ(blocks[0].substr(0, 32),
              "0100" + to_hex(be16((full_runs + 3) / 2 + 2)) + unspaced("A1A2A3A4 0005 0001 3FFF 3FFF"));
    EXPECT_EQ(blocks[0].size() / 8 - 1, (full_runs + 3) / 2 + 2);
    EXPECT_EQ(blocks[1].substr(0, 32), unspaced("0700 0008 A1A2A3A4 FF00FF00 0001 0000"));
    for (int i = 0; i < 300; i++) {
        xr.monitor_jitter_buffer_size(highest);
        xr.monitor(i % 2 ? highest : lowest, i % 3 ? lowest : i, i % 5 ? highest : -highest);
        xr.calculate_jitter();
        report(xr);
    }
}

TEST(rtcp_xr, every_block_of_one_report_byte_for_byte) {
    manual_clock clock(1);
    ntp_timediff = 5;
    rtcp_xr xr;
    xr.set_mode(to_str(all_blocks));
    rtimestamp const now = rtimestamp::now();
    xr.process_report(to_str(from_hex("80CF0004 A1A2A3A4 04000002 0102030405060708")),
                      rtimestamp(now.diff_ticks(rtimestamp(1000))));
    // 100 101 _ 103 103 104, the last one 10 ms late; 20 ms apart
    for (int const seq : {100, 101, 103, 103, 104})
        xr.monitor(seq, 160 * seq, 160 * seq + (seq == 104 ? 80 : 0));
    xr.add_discard();
    xr.monitor_jitter_buffer_size(20);
    xr.monitor_jitter_buffer_size(300);
    EXPECT_EQ(xr.calculate_jitter(), 5);  // 80 / 16
    auto const reading = static_cast<std::uint64_t>(now.diff_ticks(rtimestamp())) / 1000000;
    std::string const seconds = to_hex(be32(static_cast<std::uint32_t>(reading / 1000 + 5 + 2085978497)));
    std::string const fraction = to_hex(be32(static_cast<std::uint32_t>((reading % 1000 << 32) / 1000000)));
    lines const expected{
        unspaced("0100 0003 A1A2A3A4 0064 0069 E000 0000"),  // of 1 1 0 1 1 the last two are left
        unspaced("0200 0003 A1A2A3A4 0064 0069 8000 0000"),
        unspaced("0300 0007 A1A2A3A4 0064 0066 00003E80 00003F20 0067 0069 00004060 00004150"),
        unspaced(
            "06E0 0009 A1A2A3A4 0064 0068 00000001 00000001 00000000 00000050 00000028 00000028 00000000"),
        unspaced("0700 0008 A1A2A3A4 0033 0000 0000 005A 0123 0000 7F7F7F10 00000000 0123 00A0 2C01 FFFF"),
        "04000002" + seconds + fraction,
        unspaced("0500 0003 A1A2A3A4 03040506 00000041"),  // 1000 << 16 of 1000000ths
    };
    EXPECT_EQ(blocks_of(xr, 0x0123), expected);
    EXPECT_EQ(report(xr), "") << "nothing monitored since";
    receive(xr, {105});
    EXPECT_EQ(blocks_of(xr).size(), 6u) << "a reference time is answered once";
    ntp_timediff = 0;
}

TEST(rtcp_xr, only_complete_reference_times_are_taken) {
    constexpr char const* table[][3] = {
        // what, packet, middle of the NTP time that is answered
        {"one block", "80CF0004 A1A2A3A4 04000002 0102030405060708", "03040506"},
        {"cut in the middle", "80CF0004 A1A2A3A4 04000002 0102030405", ""},
        {"a cut one behind a complete one", "80CF0007 A1A2A3A4 04000002 0102030405060708 04000002 1112131415",
         "03040506"},
        {"behind an unknown block", "80CF0006 A1A2A3A4 63000001 FFFFFFFF 04000002 0102030405060708",
         "03040506"},
        {"behind an impossible length", "80CF0006 A1A2A3A4 63000009 FFFFFFFF 04000002 0102030405060708", ""},
        {"length 0 does not stop the walk", "80CF0005 A1A2A3A4 63000000 04000002 0102030405060708",
         "03040506"},
    };
    for (auto const& [what, packet, answered] : table) {
        rtcp_xr xr;
        xr.set_mode(to_str("rcvr-rtt"));
        xr.process_report(to_str(from_hex(packet)), rtimestamp::now());
        receive(xr, {1});
        lines const blocks = blocks_of(xr);
        ASSERT_EQ(blocks.size(), *answered ? 2u : 1u) << what;
        EXPECT_EQ(*answered ? blocks[1].substr(16, 8) : "", answered) << what;
    }
}

}  // namespace
