#include "dsp/dtmf_synthesizer.h"
#include "tests/support/media_fixture.h"
#include "tests/support/udp_peer.h"

namespace {

constexpr int audio_type = 11, event_type = 101;

/// Channel 2 sends linear PCM to a far end on the loopback.
class sending : public media_fixture {
protected:
    sending() : tested(channels[2]) {}
    void begin(int ptime, int event_payload_type) {
        begin_call(tested);
        tested.open(20000, 60000, 0);
        tested.set_destination(far_end.address(), ip_port(), false);
        tested.set_codec(0, audio_type, event_payload_type, str::null, ptime);
        tested.set_codec(0, audio_type, event_payload_type, str::null, 0);  // keeps the last packet time
    }
    std::vector<rtp_packet> sent() {
        std::vector<rtp_packet> packets;
        for (std::string const& datagram : far_end.received(tested.get_fd_rtp4()))
            packets.push_back(rtp_packet::parse(datagram));
        return packets;
    }
    channel& tested;
    udp_peer far_end;
};

TEST_F(sending, audio_is_packed_up_to_the_packet_time) {
    constexpr int table[][2] = {{10, 1}, {20, 2}, {30, 3}, {40, 4}, {60, 6}, {5, 1}, {200, 20}, {25, 3}};
    for (auto const& [ptime, blocks] : table) {
        begin(ptime, event_type);
        std::string second;
        for (int block = 0; block < 3 * blocks - 1; block++) {
            tested.process_audio(to_str(pcm_of(block)));
            second += block / blocks == 1 ? pcm_of(block) : "";
        }
        std::vector<rtp_packet> const packets = sent();
        ASSERT_EQ(packets.size(), 2u) << ptime;
        EXPECT_EQ(to_hex(packets[1].payload), to_hex(second)) << ptime;
        EXPECT_EQ(packets[1].timestamp - packets[0].timestamp, 8u * static_cast<unsigned>(ptime));
    }
}

/// The packets around one digit that starts after 6 blocks: those of audio before it, its event packets (of which the
/// first has duration `first`, each further one a packet time more), those with the end bit, the blocks in the first
/// packet of audio behind it.
struct event_row {
    int ptime, before, first, events, end_duration, ends, blocks_after;
};
constexpr event_row event_table[] = {
    {10, 6, 0, 35, 2800, 3, 1},  {20, 3, 160, 16, 2560, 3, 2}, {30, 2, 240, 9, 2400, 3, 1}, {40, 1, 320, 7, 2240, 3, 4},
    {60, 1, 480, 3, 1920, 3, 4}, {5, 6, 0, 35, 2800, 3, 1},    {200, 0, 0, 0, 0, 2, 16}};

TEST_F(sending, telephone_events_for_every_packet_time) {
    for (event_row const& row : event_table) {
        begin(row.ptime, event_type);
        tested.send_dtmf(0x10B);  // only the low 8 bits count
        for (int block = 1; block <= 80; block++)
            tested.process_audio(to_str(pcm_of(block)));
        std::vector<rtp_packet> const packets = sent();
        int const after = row.before + row.events + row.ends, count = static_cast<int>(packets.size());
        ASSERT_GT(count, after) << row.ptime;
        for (int i = 0; i < count; i++) {
            SCOPED_TRACE(std::to_string(row.ptime) + " ms, packet " + std::to_string(i));
            rtp_packet const& p = packets[static_cast<std::size_t>(i)];
            bool const event = i >= row.before && i < after, end = i >= row.before + row.events;
            EXPECT_EQ(p.ssrc, 0x11223344u);
            EXPECT_EQ(p.sequence, std::uint16_t(packets[0].sequence + i));
            EXPECT_EQ(p.marker, i == 0 || i == row.before || i == after);
            EXPECT_EQ(p.payload_type, event ? event_type : audio_type);
            EXPECT_EQ(p.timestamp - packets[0].timestamp,
                      static_cast<std::uint32_t>(row.ptime * 8 * (event ? row.before : i)));
            int const step = row.ptime < 10 ? 80 : row.ptime * 8;
            int const duration = end ? row.end_duration : row.first + (i - row.before) * step;
            if (event) {
                EXPECT_EQ(to_hex(p.payload), (end ? "0B8A" : "0B0A") + to_hex(be16(static_cast<unsigned>(duration))));
            }
        }
        // What was collected before the tone is dropped; 6 blocks of silence follow it.
        std::string const& payload = packets[static_cast<std::size_t>(after)].payload;
        EXPECT_EQ(payload.size(), pcm_of(0, 80 * row.blocks_after).size()) << row.ptime;
        EXPECT_TRUE(payload.starts_with(pcm_of(0, 80 * std::min(row.blocks_after, 6)))) << row.ptime;
    }
}

// The rhythm of queued digits; blocks of 30 ms take three steps of it.
TEST_F(sending, without_a_payload_type_of_events_digits_are_in_the_audio) {
    for (int const no_events : {0, -1}) {
        begin(30, no_events);
        std::string expected, all;
        for (int const digit : {3, 3, 10, 5}) {
            tested.send_dtmf(digit);
            dtmf_synthesizer reference;  // a digit starts at the tables' beginning, even the same one again
            for (int tick = 0; tick < 50; tick++)
                expected += tick >= 6 && tick < 44 ? to_string(reference.get_samples(digit, 0)) : pcm_of(0);
        }
        for (int i = 0; i < 67; i++)
            tested.process_audio(to_str(pcm_of(9, 240)));
        for (rtp_packet const& p : sent())
            all += p.payload;
        EXPECT_EQ(to_hex(all), to_hex(expected + pcm_of(9, 80)));
    }
}

}  // namespace
