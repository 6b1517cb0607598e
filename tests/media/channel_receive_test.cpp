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
    explicit receiving(int log_threshold = -1)
        : media_fixture(log_threshold), tested(channels[3]), sender(to_str(from_hex("C0A80107")), 4000) {
        std::string map(128, '\xFF');
        map[0] = 0;
        map[1] = '\x80';
        map[127] = 0;
        set_map(map);
    }
    void set_map(std::string const& map) { tested.set_codec(0, 0, -1, to_str(map), 20); }
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
    std::vector<int> play(int blocks) {
        std::vector<int> names;
        while (blocks-- > 0)
            names.push_back(play());
        return names;
    }
    lines reports_in_hex() {
        lines all;
        for (std::string const& report : peer.reports())
            all.push_back(to_hex(report));
        return all;
    }

    channel& tested;
    ip_port sender;
};

class receiving_with_log : public receiving {
protected:
    receiving_with_log() : receiving(9) {}
};

TEST_F(receiving, what_is_no_packet_of_ours_leaves_no_trace) {
    std::string const good = named(5, 7).build();
    auto const with_byte = [&](std::size_t at, unsigned value) {
        std::string packet = good;
        packet[at] = static_cast<char>(value);
        return packet;
    };
    struct {
        char const* what;
        std::string packet;
    } const table[] = {{"nothing", ""},
                       {"11 bytes", good.substr(0, 11)},
                       {"11 bytes of STUN", from_hex("0001 0000 2112A442 000000")},
                       {"version 0", with_byte(0, 0x02)},
                       {"version 1", with_byte(0, 0x40)},
                       {"version 3", with_byte(0, 0xC0)},
                       {"payload type mapped to 128", with_byte(1, 1)},
                       {"payload type mapped to 255", with_byte(1, 2)},
                       {"the same with marker", with_byte(1, 0x82)},
                       {"ZRTP nibble, other cookie", from_hex("1000 0001 5A525451 00000001")},
                       {"ZRTP cookie, other nibble", from_hex("2000 0001 5A525450 00000001")}};
    for (auto const& [what, packet] : table) {
        deliver(packet, 0);
        EXPECT_FALSE(tested.output_available()) << what;
        EXPECT_EQ(reports_in_hex(), lines{}) << what;
    }
    set_map(std::string(127, 0));
    deliver(with_byte(1, 127), 0);
    EXPECT_EQ(reports_in_hex(), lines{}) << "payload type beyond the map";
    deliver(with_byte(1, 126), 0);
    EXPECT_EQ(reports_in_hex(), lines{hex(latched_first)})
        << "the next one is accepted, and is the first to be";
    EXPECT_EQ(play(2), (std::vector<int>{7, 0}));
}

TEST_F(receiving, twelve_bytes_are_a_packet_with_an_empty_payload) {
    deliver(named(5, 7).build().substr(0, 12), 0);
    EXPECT_TRUE(tested.output_available());
    deliver(named(6, 8), 10);
    EXPECT_EQ(play(3), (std::vector<int>{0, 8, 0})) << "it has its turn and plays as silence";
}

TEST_F(receiving, the_whole_header_is_skipped) {
    for (int const padded : {0, 1})
        for (int csrcs = 0; csrcs < 16; csrcs++)
            for (int const words : {-1, 0, 1, 3, 300}) {
                rtp_packet packet = named(5, 100 + csrcs);
                packet.csrc_count = csrcs;
                packet.extension_words = words;
                packet.padding = padded != 0;
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

TEST_F(receiving_with_log, other_protocols_on_the_port_go_to_call_control) {
    std::string const zrtp = from_hex("1000 1234 5A525450 CAFEBABE 505A"),
                      stun = from_hex("0101 0000 2112A442 01020304");
    deliver(zrtp, 0);
    EXPECT_EQ(
        reports_in_hex(),
        lines{hex(
            "0017 0022 0004 0002 0003 0005 0006 0FA0 C0A80107 000D 000E 1000 1234 5A525450 CAFEBABE 505A")});
    deliver(from_hex("1F00 1234 5A525450 CAFEBABE"), 0);
    EXPECT_EQ(reports_in_hex().size(), 1u);
    deliver(stun, 0);
    EXPECT_EQ(peer.transcript(),
              (lines{"8 TCP rec send tunnel cmd", hex("000F 0026 0004 0002 0003 0005 0006 0FA0 C0A80107 000D "
                                                      "000C 0101 0000 2112A442 01020304 0022 0002 0000")}));
    sender = ip_port(to_str(from_hex("20010DB8000000000000000000000001")), 65535);
    tested.process_rtp_data(to_str(from_hex("0001 0000 2112A442 01020304")), sender, true, rtimestamp());
    EXPECT_EQ(peer.transcript(),
              (lines{"8 TCP rec send tunnel cmd",
                     hex("000F 0032 0004 0002 0003 0005 0012 FFFF 20010DB8000000000000000000000001 000D 000C "
                         "0001 0000 2112A442 01020304 0022 0002 0001")}));
    EXPECT_FALSE(tested.output_available());
}

TEST_F(receiving_with_log, the_first_ssrc_is_latched) {
    deliver(named(5, 7), 0);
    EXPECT_EQ(peer.transcript(), (lines{hex(latched_first), "7 Receiving RTP from 192.168.1.7:4000"}));
    sender = ip_port(to_str(from_hex("20010DB8000000000000000000000001")), 5004);
    deliver(named(6, 8), 10);
    EXPECT_EQ(peer.transcript(), lines{}) << "another address with the same SSRC is the same stream";
    tested.init();
    set_map(std::string(128, 0));
    deliver(named(5, 7), 20);
    EXPECT_EQ(peer.transcript(), (lines{hex("0018 0024 0004 0002 0003 0005 0012 138C "
                                            "20010DB8000000000000000000000001 0020 0004 AAAA0001"),
                                        "7 Receiving RTP from [2001:db8::1]:5004"}));
}

TEST_F(receiving_with_log, another_ssrc_takes_over_from_a_stream_that_stopped) {
    struct {
        double gap_ms;
        bool takes_over;
    } const table[] = {{0, false}, {50, false}, {99.875, false}, {100, true}, {150, true}, {-0.125, true}};
    for (auto const& [gap, takes_over] : table) {
        tested.init();
        set_map(std::string(128, 0));
        deliver(named(5, 1), 990);
        deliver(named(6, 2), 1000);
        peer.transcript();
        deliver(named(5000, 3, other_ssrc), 1000 + gap);
        EXPECT_EQ(peer.transcript(),
                  takes_over ? (lines{"5 Tuning to new SSRC", hex(latched_other)}) : lines{})
            << gap;
        EXPECT_EQ(play(3), takes_over ? (std::vector<int>{3, 0, 0}) : (std::vector<int>{1, 2, 0})) << gap;
    }
    // A losing packet does not keep the old stream alive.
    tested.init();
    set_map(std::string(128, 0));
    deliver(named(5, 1), 1000);
    deliver(named(50, 2, other_ssrc), 1060);
    deliver(named(51, 3, other_ssrc), 1120);
    EXPECT_EQ(play(2), (std::vector<int>{3, 0}));
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

TEST_F(receiving_with_log, a_sender_that_steps_back_within_half_a_second_is_followed) {
    struct {
        double gap_ms;
        bool followed;
    } const table[] = {{20, true}, {499.875, true}, {500, false}, {900, false}};
    for (auto const& [gap, followed] : table) {
        tested.init();
        set_map(std::string(128, 0));
        deliver(named(20000, 1), 1000);
        EXPECT_EQ(play(), 1);
        peer.transcript();
        deliver(named(19000, 2), 1000 + gap);
        EXPECT_EQ(peer.transcript(), followed ? lines{"5 Resuming RTP playback"} : lines{}) << gap;
        EXPECT_EQ(play(), followed ? 2 : 0) << gap;
    }
}

TEST_F(receiving, a_packet_of_extended_number_zero_never_starts_play_out) {
    deliver(named(0, 1), 0);
    EXPECT_FALSE(tested.output_available());
    deliver(named(1, 2), 1000);
    EXPECT_EQ(play(2), (std::vector<int>{2, 0}));
}

TEST_F(receiving, of_duplicates_the_first_copy_stays) {
    deliver(named(5, 1), 0);
    deliver(named(6, 2), 0);
    deliver(named(6, 99), 0);
    deliver(named(7, 3), 0);
    EXPECT_EQ(play(4), (std::vector<int>{1, 2, 3, 0}));
}

// Packets 11 and 13 after 10; each late packet before it has made the wanted depth one packet deeper.
TEST_F(receiving, over_a_gap_play_out_waits_for_the_wanted_depth) {
    for (int late = 0; late < 20; late++) {
        tested.init();
        set_map(std::string(128, 0));
        double at = 0;
        deliver(named(10, 1), at);
        EXPECT_EQ(play(), 1);
        for (int i = 0; i < late; i++)
            deliver(named(10, 99), at += 600);
        deliver(named(11, 2), at);
        deliver(named(13, 3), at);
        EXPECT_EQ(play(), 2) << "the next in sequence plays at once";
        int const depth = std::min(1 + late, 16);
        for (int i = 1; i < depth; i++) {
            ASSERT_FALSE(tested.output_available()) << late << " late, buffered " << i;
            ASSERT_EQ(play(), 0);
            deliver(named(13 + i, 3 + i), at);
        }
        ASSERT_TRUE(tested.output_available()) << late;
        ASSERT_EQ(play(), 3) << late;
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
        tested.init();
        set_map(std::string(128, 0));
        for (int i = 0; i < packets; i++)
            deliver(named(100 + i, 1), 10000);
        deliver(named(100 + packets, 2), 10000 + age);
        int blocks = 0;
        for (; tested.output_available(); blocks++)
            EXPECT_EQ(play(), blocks < packets && !thrown_away ? 1 : 2);
        EXPECT_EQ(blocks, thrown_away ? 1 : packets + 1) << packets << " packets, " << age << " ms";
    }
}

TEST_F(receiving_with_log, a_thrown_away_buffer_is_logged_and_even_a_duplicate_does_it) {
    deliver(named(100, 1), 0);
    peer.transcript();
    deliver(named(100, 2), 3001);
    EXPECT_EQ(peer.transcript(), lines{"7 jitter buffer deleted"});
    EXPECT_FALSE(tested.output_available()) << "the duplicate is not stored";
    deliver(named(50, 3), 3010);
    EXPECT_EQ(play(), 3) << "play-out starts anew, wherever that is";
}

TEST_F(receiving_with_log, a_marker_starts_anew_and_clears_what_the_line_has_queued) {
    stepped_lines telephone;
    tested.set_tdm_channel(1);
    deliver(named(100, 1), 0);
    deliver(named(101, 2), 0);
    rtp_packet marked = named(40000, 3);
    marked.marker = true;
    deliver(marked, 0);
    deliver(named(40001, 4), 0);
    peer.transcript();
    EXPECT_EQ(play(), 3);
    EXPECT_EQ(peer.transcript(), lines{"7 Clear Tx"});
    EXPECT_EQ(play(2), (std::vector<int>{4, 0}));
    EXPECT_EQ(peer.transcript(), lines{}) << "only the first packet of a talk spurt clears";
}

TEST_F(receiving, a_new_destination_empties_the_buffer_and_goes_on_in_sequence) {
    for (int i = 0; i < 3; i++)
        deliver(named(100 + i, 1 + i), 0);
    EXPECT_EQ(play(), 1);
    tested.set_destination(sender, ip_port(), false);
    EXPECT_FALSE(tested.output_available());
    deliver(named(103, 4), 10);
    EXPECT_TRUE(tested.output_available()) << "one packet is the wanted depth";
    EXPECT_EQ(play(), 4);
}

TEST_F(receiving, announcements_go_first_and_their_end_is_reported) {
    deliver(named(100, 9), 0);
    peer.reports();
    tested.add_playback(to_str(pcm_of(1, 100)));
    EXPECT_TRUE(tested.output_available());
    EXPECT_EQ(play(), 1);
    EXPECT_EQ(reports_in_hex(), lines{});
    EXPECT_EQ(to_hex(to_string(tested.get_samples())), to_hex(pcm_of(1, 20) + pcm_of(0, 60)));
    EXPECT_EQ(reports_in_hex(), lines{hex("001C 0006 0004 0002 0003")});
    EXPECT_EQ(play(2), (std::vector<int>{9, 0}));
    tested.add_playback(to_str(pcm_of(2)));
    EXPECT_EQ(play(), 2);
    EXPECT_EQ(reports_in_hex(), lines{hex("001C 0006 0004 0002 0003")})
        << "a full last block ends it as well";
}

TEST_F(receiving, tones_play_when_there_is_nothing_else) {
    EXPECT_FALSE(tested.set_playback(0, 0));
    ASSERT_TRUE(tested.set_playback(1, 1));
    synth same_tone;
    same_tone.set_tone(1, 1);
    EXPECT_TRUE(tested.output_available());
    auto const expect_tone = [&] { EXPECT_TRUE(tested.get_samples() == same_tone.get_10ms()); };
    expect_tone();
    deliver(named(100, 9), 0);
    EXPECT_EQ(play(), 9);
    expect_tone();
    EXPECT_FALSE(tested.set_playback(99, 1)) << "an unknown tone is silence";
    EXPECT_FALSE(tested.output_available());
}

}  // namespace
