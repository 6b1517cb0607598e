#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/ntp.h"
#include "media/rtcp_xr.h"
#include "tests/media/xr_model.h"
#include "tests/support/manual_clock.h"
#include "tests/support/seed.h"

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

/// Wants random blocks, in any spelling, of a limited length some of them; nothing of what was wanted before stays.
void choose_blocks(dice& random, rtcp_xr& xr, xr_model& model) {
    std::string mode = random.chance(50) ? " pkt-loss-rlex  pkt-loss " : "";
    auto const add = [&](std::string word) {
        if (random.chance(30))
            word[0] = static_cast<char>(std::toupper(word[0]));
        mode += word + (random.chance(50) ? "  " : " ");
    };
    auto const sized = [&](std::string const& word, int& limit) {
        int const limits[] = {0, -1, 16, 17, 24, 65536, random.between(8, 400), random.between(8, 400)};
        limit = limits[random.below(8)];
        if (limit != 0 || random.chance(50))
            add(limit == 65536 ? word : word + "=" + std::to_string(limit));
    };
    auto const flag = [&](std::string const& word, bool& on) {
        on = random.chance(60);
        if (on)
            add(random.chance(20) ? word + "=all" : word);
    };
    sized("pkt-loss-rle", model.loss_max);
    flag("voip-metrics", model.voip);
    sized("pkt-rcpt-times", model.times_max);
    flag("stat-summary", model.summary);
    sized("pkt-dup-rle", model.dup_max);
    flag("rcvr-rtt", model.rtt);
    xr.set_mode(to_str(all_blocks));
    xr.set_mode(to_str(mode));
    EXPECT_EQ(xr.is_active(), std::max({model.loss_max, model.dup_max, model.times_max}) > 0 || model.voip ||
                                  model.summary || model.rtt)
        << mode;
}

TEST(rtcp_xr, reports_equal_the_model_over_many_calls) {
    constexpr std::int32_t starts[] = {1, 32768, 65000, 16, -700, 0x7FF00000, 3};
    constexpr int losses[] = {0, 1, 5, 30, 90};                               // percent
    constexpr int most[] = {3, 700, 130, 130, 130, 130, 130, 130, 130, 130};  // packets of a period
    seed_range{1, 150}.roll([&](dice& random) {
        manual_clock clock;
        rtcp_xr xr;
        xr_model model;
        choose_blocks(random, xr, model);
        ntp_timediff = random.word();
        std::int32_t seq = starts[random.below(7)] + random.below(5);
        auto const monitor = [&](std::int32_t number) {
            std::uint32_t const when = static_cast<std::uint32_t>(number) * 160;
            std::uint32_t const stamp = when + (random.chance(2) ? random.word() % 100000 : 0);
            std::uint32_t const time = when + random.word() % (random.chance(5) ? 3000 : 40);
            xr.monitor(number, static_cast<int>(stamp), static_cast<int>(time));
            model.monitor(number, stamp, time);
        };
        for (int period = 0; period < 40; period++) {
            int const loss = losses[random.below(5)], late = random.below(4), twice = random.below(6);
            bool clear = true;
            seq += random.chance(4) ? random.below(60000) : 0;
            for (int n = random.below(most[random.below(10)]); n > 0; n--, seq++) {
                clear = random.chance(loss ? 15 : 1) ? !clear : clear;
                if (random.chance(clear ? loss : 60))
                    continue;
                monitor(random.chance(late) ? seq - random.between(1, 20) : seq);
                for (int copies = random.chance(twice) ? random.between(1, 3) : 0; copies > 0; copies--)
                    monitor(seq);
                if (random.chance(3))
                    xr.add_discard(), model.discard();
                if (int const ms = 10 * random.below(90); random.chance(80))
                    xr.monitor_jitter_buffer_size(ms), model.jitter_buffer(ms);
            }
            rtimestamp const asked = rtimestamp::now();
            if (random.chance(20)) {  // the peer sends its receiver reference time
                std::string const ntp = be32(random.word()) + be32(random.word());
                xr.process_report(to_str(from_hex("80CF0004") + remote + from_hex("04000002") + ntp), asked);
                model.reference_time = ntp.substr(2, 4);
                model.reference_arrival_ns = asked.diff_ticks(rtimestamp());
            }
            clock.advance(static_cast<std::uint32_t>(random.below(300)));
            long long const now = rtimestamp::now().diff_ticks(rtimestamp());
            int const delay = random.below(70000);
            ASSERT_EQ(xr.calculate_jitter(), model.jitter());
            ASSERT_EQ(report(xr, delay),
                      to_hex(model.packet(remote, local, static_cast<unsigned>(delay), now, ntp_timediff)));
        }
    });
    ntp_timediff = 0;
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
