#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "media/rtp_sequence.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/stepped_lines.h"

namespace {

using lines = std::vector<std::string>;

constexpr long long ms = 1000000;
constexpr std::uint32_t first_ssrc = 0xAAAA0001, other_ssrc = 0xBBBB0002;
constexpr char latched_first[] = "0018 0018 0004 0002 0003 0005 0006 0FA0 C0A80107 0020 0004 AAAA0001";
constexpr char latched_other[] = "0018 0018 0004 0002 0003 0005 0006 0FA0 C0A80107 0020 0004 BBBB0002";

std::string hex(std::string_view text) {
    return to_hex(from_hex(text));
}

/// Channel 3 receives linear PCM as payload type 0; every packet's samples are a number that names it.
class receiving : public media_fixture {
protected:
    receiving() : media_fixture(9), tested(channels[3]), sender(to_str(from_hex("C0A80107")), 4000) {
        std::string map(128, '\xFF');
        map[0] = 0;
        map[1] = '\x80';
        map[127] = 0;
        set_map(map);
    }
    void set_map(std::string const& map) { tested.set_codec(0, 0, -1, to_str(map), 20); }
    void restart() {
        tested.init();
        set_map(std::string(128, 0));
    }
    void deliver(std::string_view packet, long long at_ns) {
        EXPECT_EQ(tested.process_rtp_data(to_str(packet), sender, false, rtimestamp(at_ns)), 0);
    }
    void deliver(rtp_packet const& packet, double at_ms) {
        deliver(packet.build(), static_cast<long long>(at_ms * ms));
    }
    /// 10 ms of samples that are `name`.
    static rtp_packet named(int sequence, int name, std::uint32_t ssrc = first_ssrc) {
        rtp_packet packet;
        packet.sequence = static_cast<std::uint16_t>(sequence);
        packet.ssrc = ssrc;
        packet.payload = pcm_of(name);
        return packet;
    }
    int play() {
        std::string const block = to_string(tested.get_samples());
        EXPECT_EQ(block.size(), 160u);
        int const name = first_sample(block);
        EXPECT_TRUE(block == pcm_of(name));
        return name;
    }
    channel& tested;
    ip_port sender;
};

TEST_F(receiving, what_is_no_packet_of_ours_leaves_no_trace) {
    std::string const good = named(5, 7).build();
    auto const with_byte = [&](std::size_t at, unsigned value) {
        std::string packet = good;
        packet[at] = static_cast<char>(value);
        return packet;
    };
    std::string const table[] = {"",
                                 good.substr(0, 11),
                                 from_hex("0001 0000 2112A442 000000"),
                                 with_byte(0, 0x40),  // versions 1 and 3
                                 with_byte(0, 0xC0),
                                 with_byte(1, 1),  // payload types mapped to 128 and 255
                                 with_byte(1, 0x82),
                                 from_hex("1000 0001 5A525451 00000001"),   // ZRTP but for the cookie
                                 from_hex("2000 0001 5A525450 00000001")};  // and the nibble
    for (std::string const& packet : table) {
        deliver(packet, 0);
        EXPECT_FALSE(tested.output_available()) << to_hex(packet);
        EXPECT_EQ(peer.transcript(), lines{}) << to_hex(packet);
    }
    set_map(std::string(127, 0));
    deliver(with_byte(1, 127), 0);
    EXPECT_EQ(peer.transcript(), lines{}) << "payload type beyond the map";
    deliver(with_byte(1, 126), 0);
    EXPECT_EQ(peer.transcript(), (lines{hex(latched_first), "7 Receiving RTP from 192.168.1.7:4000"}));
    EXPECT_EQ(play(), 7);
}

TEST_F(receiving, the_whole_header_is_skipped) {
    for (int csrcs = 0; csrcs < 16; csrcs++)
        for (int const words : {-1, 0, 1, 3, 300}) {
            rtp_packet packet = named(5, 100 + csrcs);
            packet.csrc_count = csrcs;
            packet.extension_words = words;
            packet.padding = csrcs % 2 != 0;
            packet.marker = true;
            deliver(packet, 0);
            ASSERT_EQ(play(), 100 + csrcs) << csrcs << " CSRCs, extension of " << words;
            ASSERT_FALSE(tested.output_available());
        }
}

TEST_F(receiving, a_header_longer_than_its_packet_leaves_an_empty_payload) {
    for (char const* start : {"8F", "90", "9F"})
        for (std::size_t const kept : {12u, 13u, 15u, 16u, 40u, 71u}) {
            rtp_packet packet = named(5, 7);
            packet.payload.assign(60, '\x7F');
            packet.marker = true;
            deliver(from_hex(start) + packet.build().substr(1, kept - 1), 0);
            ASSERT_TRUE(tested.output_available()) << start << " " << kept;
            ASSERT_EQ(play(), 0) << start << " " << kept;
        }
}

TEST_F(receiving, other_protocols_on_the_port_go_to_call_control) {
    deliver(from_hex("1F00 1234 5A525450 CAFEBABE"), 0);
    deliver(from_hex("0101 0000 2112A442 01020304"), 0);
    EXPECT_EQ(
        peer.transcript(),
        (lines{hex("0017 0020 0004 0002 0003 0005 0006 0FA0 C0A80107 000D 000C 1F00 1234 5A525450 CAFEBABE"),
               "8 TCP rec send tunnel cmd",
               hex("000F 0026 0004 0002 0003 0005 0006 0FA0 C0A80107 000D 000C 0101 0000 2112A442 01020304 "
                   "0022 0002 0000")}));
    EXPECT_FALSE(tested.output_available());
}

TEST_F(receiving, the_first_ssrc_is_latched) {
    sender = ip_port(to_str(from_hex("20010DB8000000000000000000000001")), 5004);
    deliver(named(5, 7), 20);
    EXPECT_EQ(peer.transcript(), (lines{hex("0018 0024 0004 0002 0003 0005 0012 138C "
                                            "20010DB8000000000000000000000001 0020 0004 AAAA0001"),
                                        "7 Receiving RTP from [2001:db8::1]:5004"}));
    sender = ip_port(to_str(from_hex("C0A80107")), 4000);
    deliver(named(6, 8), 30);
    EXPECT_EQ(peer.transcript(), lines{}) << "another address with the same SSRC is the same stream";
}

TEST_F(receiving, another_ssrc_takes_over_from_a_stream_that_stopped) {
    constexpr std::pair<double, bool> table[] = {{50, false}, {99.875, false}, {100, true}, {-0.125, true}};
    for (auto const& [gap, takes_over] : table) {
        restart();
        deliver(named(5, 1), 990);
        deliver(named(6, 2), 1000);
        peer.transcript();
        deliver(named(5000, 3, other_ssrc), 1000 + gap);
        EXPECT_EQ(peer.transcript(),
                  takes_over ? (lines{"5 Tuning to new SSRC", hex(latched_other)}) : lines{})
            << gap;
        EXPECT_EQ(play(), takes_over ? 3 : 1) << gap;
    }
}

TEST(extended_sequence, stays_near_the_play_out_point) {
    struct {
        std::uint16_t sequence;
        std::uint32_t last, extended;
    } const table[] = {
        {0x0001, 0x0001FFF0, 0x00020001}, {0xFFF0, 0x00020005, 0x0001FFF0}, {0x3FFF, 0x0000C001, 0x00013FFF},
        {0x3FFF, 0x0000C000, 0x00003FFF}, {0x4000, 0x0000FFFF, 0x00004000}, {0xC001, 0x00013FFF, 0x0000C001},
        {0xC001, 0x00014000, 0x0001C001}, {0xC000, 0x00010000, 0x0001C000}, {0xFFFF, 0x00000000, 0xFFFFFFFF},
        {0x0000, 0xFFFFFFFF, 0x00000000}, {0x8000, 0x00018000, 0x00018000}};
    for (auto const& [sequence, last, extended] : table)
        EXPECT_EQ(extend_sequence(sequence, last), extended) << std::hex << sequence << " after " << last;
}

TEST_F(receiving, a_sender_that_steps_back_within_half_a_second_is_followed) {
    constexpr std::pair<double, bool> table[] = {{20, true}, {499.875, true}, {500, false}};
    for (auto const& [gap, followed] : table) {
        restart();
        deliver(named(20000, 1), 1000);
        EXPECT_EQ(play(), 1);
        peer.transcript();
        deliver(named(19000, 2), 1000 + gap);
        EXPECT_EQ(peer.transcript(), followed ? lines{"5 Resuming RTP playback"} : lines{}) << gap;
        EXPECT_EQ(play(), followed ? 2 : 0) << gap;
    }
}

TEST_F(receiving, a_buffer_too_old_or_too_long_is_thrown_away) {
    struct {
        int packets;
        double age_ms;
        bool thrown_away;
    } const table[] = {{400, 0, false},   {401, 0, true},   {1, 3000.4, false},
                       {1, 3000.5, true}, {2, 60000, true}, {1, -5000, false}};
    for (auto const& [packets, age, thrown_away] : table) {
        restart();
        for (int i = 0; i < packets; i++)
            deliver(named(100 + i, 1), 10000);
        peer.transcript();
        deliver(named(100 + packets, 2), 10000 + age);
        EXPECT_EQ(peer.transcript(), thrown_away ? lines{"7 jitter buffer deleted"} : lines{});
        int blocks = 0;
        for (; tested.output_available(); blocks++)
            EXPECT_EQ(play(), blocks < packets && !thrown_away ? 1 : 2);
        EXPECT_EQ(blocks, thrown_away ? 1 : packets + 1) << packets << " packets, " << age << " ms";
    }
}

TEST_F(receiving, a_marker_starts_anew_and_clears_what_the_line_has_queued) {
    stepped_lines telephone;
    tested.set_tdm_channel(1);
    deliver(named(100, 1), 0);
    rtp_packet marked = named(40000, 3);
    marked.marker = true;
    deliver(marked, 0);
    deliver(named(40001, 4), 0);
    peer.transcript();
    EXPECT_EQ(play(), 3);
    EXPECT_EQ(peer.transcript(), lines{"7 Clear Tx"});
    EXPECT_EQ(play(), 4);
    EXPECT_EQ(peer.transcript(), lines{}) << "only the first packet of a talk spurt clears";
}

}  // namespace
