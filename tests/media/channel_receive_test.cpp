#include <sys/time.h>

#include "dsp/devmgr.h"
#include "lib/sockets.h"
#include "media/rtp_sequence.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

constexpr std::uint32_t first_ssrc = 0xAAAA0001, other_ssrc = 0xBBBB0002;

/// Channel 3; every packet's samples are a number that names it.
class receiving : public media_fixture {
protected:
    receiving() : media_fixture(9), tested(channels[3]), sender(to_str(from_hex("C0A80107")), 4000) {
        begin_call(tested);
    }
    void deliver(std::string_view packet, double at_ms = 0) {
        rtimestamp const arrival(static_cast<long long>(at_ms * 1000000));
        EXPECT_EQ(tested.process_rtp_data(to_str(packet), sender, false, arrival), 0);
    }
    void deliver(rtp_packet const& packet, double at_ms = 0) { deliver(packet.build(), at_ms); }
    static std::string latched(char const* ssrc) {
        return unspaced("0018 0018 0004 0002 0003 0005 0006 0FA0 C0A80107 0020 0004") + ssrc;
    }
    channel& tested;
    ip_port sender;
};

TEST_F(receiving, what_is_no_packet_of_ours_leaves_no_trace) {
    auto const set_map = [&](std::string const& map) { tested.set_codec(0, 0, -1, to_str(map), 20); };
    set_map(from_hex("0080FF"));
    std::string const good = named_packet(5, 7).build(), rest = good.substr(2);
    // Versions 1 and 3; payload types mapped to 128 and 255, and beyond the map; ZRTP but for cookie and nibble.
    std::string const table[] = {"",
                                 good.substr(0, 11),
                                 from_hex("0001 0000 2112A442 000000"),
                                 from_hex("4000") + rest,
                                 from_hex("C000") + rest,
                                 from_hex("8001") + rest,
                                 from_hex("8082") + rest,
                                 from_hex("8003") + rest,
                                 from_hex("1000 0001 5A525451 00000001"),
                                 from_hex("2000 0001 5A525450 00000001")};
    for (std::string const& packet : table) {
        deliver(packet);
        EXPECT_FALSE(tested.output_available()) << to_hex(packet);
        EXPECT_EQ(peer.transcript(), lines{}) << to_hex(packet);
    }
    set_map(std::string(127, 0));
    deliver(from_hex("807E") + rest);
    EXPECT_EQ(peer.transcript(), (lines{latched("AAAA0001"), "7 Receiving RTP from 192.168.1.7:4000"}));
    EXPECT_EQ(play(tested), 7);
    sender = ip_port(to_str(from_hex("20010DB8000000000000000000000001")), 5004);
    deliver(named_packet(6, 8), 10);
    EXPECT_EQ(peer.transcript(), lines{}) << "another address with the same SSRC is the same stream";
    begin_call(tested);
    deliver(named_packet(5, 7));
    EXPECT_EQ(peer.transcript(), (lines{unspaced("0018 0024 0004 0002 0003 0005 0012 138C "
                                                 "20010DB8000000000000000000000001 0020 0004 AAAA0001"),
                                        "7 Receiving RTP from [2001:db8::1]:5004"}));
}

TEST_F(receiving, the_whole_header_is_skipped) {
    for (int csrcs = 0; csrcs < 16; csrcs++)
        for (int const words : {-1, 0, 1, 3, 300}) {
            rtp_packet packet = named_packet(5, 100 + csrcs);
            packet.csrc_count = csrcs;
            packet.extension_words = words;
            packet.padding = csrcs % 2 != 0;
            packet.marker = true;
            deliver(packet);
            ASSERT_EQ(play(tested), 100 + csrcs) << csrcs << " CSRCs, extension of " << words;
            ASSERT_FALSE(tested.output_available());
        }
    rtp_packet packet = named_packet(5, 7);
    packet.payload.assign(60, '\x7F');
    packet.marker = true;
    for (char const* longer_than_the_packet : {"8F", "90", "9F"})
        for (std::size_t const kept : {12u, 13u, 15u, 16u, 40u, 71u}) {
            deliver(from_hex(longer_than_the_packet) + packet.build().substr(1, kept - 1));
            ASSERT_TRUE(tested.output_available()) << longer_than_the_packet << " " << kept;
            ASSERT_EQ(play(tested), 0) << longer_than_the_packet << " " << kept;
        }
}

TEST_F(receiving, other_protocols_on_the_port_go_to_call_control) {
    deliver(from_hex("1F00 1234 5A525450 CAFEBABE"));
    deliver(from_hex("0101 0000 2112A442 01020304"));
    std::string const channel_and_sender = "0004 0002 0003 0005 0006 0FA0 C0A80107 ";
    EXPECT_EQ(
        peer.transcript(),
        (lines{unspaced("0017 0020" + channel_and_sender + "000D 000C 1F00 1234 5A525450 CAFEBABE"),
               "8 TCP rec send tunnel cmd",
               unspaced("000F 0026" + channel_and_sender + "000D 000C 0101 0000 2112A442 01020304 0022 0002 0000")}));
    EXPECT_FALSE(tested.output_available());
}

// Another sender, or the same with numbers that are played already.
TEST_F(receiving, the_pause_decides_whether_a_new_beginning_is_followed) {
    lines const tuned{"5 Tuning to new SSRC", latched("BBBB0002")}, resumed{"5 Resuming RTP playback"};
    struct {
        int sequence;
        std::uint32_t ssrc;
        double pause_ms;
        lines said;  // none: not followed
    } const table[] = {{5000, other_ssrc, 50, {}},       {5000, other_ssrc, 99.875, {}},
                       {5000, other_ssrc, 100, tuned},   {5000, other_ssrc, -0.125, tuned},
                       {19000, first_ssrc, 20, resumed}, {19000, first_ssrc, 499.875, resumed},
                       {19000, first_ssrc, 500, {}},     {21000, other_ssrc, 99.875, {}}};
    for (auto const& row : table) {
        begin_call(tested);
        deliver(named_packet(19990, 1), 900);
        deliver(named_packet(19991, 1), 1000);
        EXPECT_EQ(play(tested) + play(tested), 2);
        peer.transcript();
        deliver(named_packet(row.sequence, 3, row.ssrc), 1000 + row.pause_ms);
        EXPECT_EQ(peer.transcript(), row.said) << row.sequence << " after " << row.pause_ms;
        EXPECT_EQ(play(tested), row.said.empty() ? 0 : 3) << row.sequence << " after " << row.pause_ms;
    }
}

// Number 0 counts as played already, so nothing plays and nobody is protected from being replaced.
TEST_F(receiving, a_sender_of_whom_nothing_plays_is_replaced_at_once) {
    deliver(named_packet(0, 1), 1000);
    EXPECT_FALSE(tested.output_available());
    deliver(named_packet(5000, 3, other_ssrc), 1010);
    EXPECT_EQ(play(tested), 3);
}

TEST(extended_sequence, stays_near_the_play_out_point) {
    constexpr std::uint32_t table[][3] = {
        // number, last one, extended
        {0x0001, 0x0001FFF0, 0x00020001}, {0xFFF0, 0x00020005, 0x0001FFF0}, {0x3FFF, 0x0000C001, 0x00013FFF},
        {0x3FFF, 0x0000C000, 0x00003FFF}, {0x4000, 0x0000FFFF, 0x00004000}, {0xC001, 0x00013FFF, 0x0000C001},
        {0xC001, 0x00014000, 0x0001C001}, {0xC000, 0x00010000, 0x0001C000}, {0xFFFF, 0x00000000, 0xFFFFFFFF},
        {0x0000, 0xFFFFFFFF, 0x00000000}, {0x8000, 0x00018000, 0x00018000}};
    for (auto const& [sequence, last, extended] : table)
        EXPECT_EQ(extend_sequence(static_cast<std::uint16_t>(sequence), last), extended)
            << std::hex << sequence << " after " << last;
}

TEST_F(receiving, a_marker_starts_anew_and_clears_what_the_line_has_queued) {
    stepped_lines telephone;
    tested.set_tdm_channel(1);
    devmgrs[1].write_audio();  // the first one of all clears too
    deliver(named_packet(100, 1));
    rtp_packet marked = named_packet(40000, 3);
    marked.marker = true;
    deliver(marked);
    deliver(named_packet(40001, 4));
    telephone.heard(1);
    peer.transcript();
    devmgrs[1].write_audio();
    EXPECT_EQ(peer.transcript(), lines{"7 Clear Tx"});
    devmgrs[1].write_audio();
    EXPECT_EQ(peer.transcript(), lines{}) << "only the first packet of a talk spurt clears";
    EXPECT_EQ(telephone.heard(1), pcm_of(3) + pcm_of(4));
}

// No stamp, one from before the clock was set back, one of 1970.
TEST(receive_stamps, that_make_no_sense_count_as_now_or_as_old) {
    constexpr long long second = 1000000000;
    manual_clock clock(1000);
    timeval day{};
    gettimeofday(&day, nullptr);
    EXPECT_TRUE(utils::on_process_clock(rtimestamp()) == rtimestamp::now());
    EXPECT_TRUE(utils::on_process_clock(rtimestamp((day.tv_sec + 3600) * second)) == rtimestamp::now());
    EXPECT_NEAR(static_cast<double>(rtimestamp::now().diff_ticks(utils::on_process_clock(rtimestamp(1)))),
                static_cast<double>(day.tv_sec) * second, 10. * second);
}

}  // namespace
