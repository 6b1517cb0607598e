#include "dsp/dtmf_synthesizer.h"
#include "tests/support/media_fixture.h"
#include "tests/support/udp_peer.h"

namespace {

constexpr int audio_type = 11, event_type = 101;

/// Channel 2 sends linear PCM to a far end on the loopback; block n of a test has samples of value n.
class sending : public media_fixture {
protected:
    sending() : tested(channels[2]) { restart(); }
    void restart() {
        begin_call(tested);
        tested.open(20000, 60000, 0);
        tested.set_destination(far_end.address(), ip_port(), false);
    }
    void use_packet_time(int ptime, int event_payload_type = event_type) {
        tested.set_codec(0, audio_type, event_payload_type, str::null, ptime);
    }
    void speak(int blocks) {
        for (; blocks > 0; blocks--)
            tested.process_audio(to_str(pcm_of(++spoken)));
    }
    std::vector<rtp_packet> sent() {
        std::vector<rtp_packet> packets;
        for (std::string const& datagram : far_end.received(tested.get_fd_rtp4()))
            packets.push_back(rtp_packet::parse(datagram));
        return packets;
    }
    channel& tested;
    udp_peer far_end;
    int spoken = 0;
};

TEST_F(sending, audio_is_packed_up_to_the_packet_time) {
    struct {
        int ptime, blocks;
        std::uint32_t step;
    } const table[] = {{10, 1, 80},  {20, 2, 160}, {30, 3, 240},    {40, 4, 320},
                       {60, 6, 480}, {5, 1, 40},   {200, 20, 1600}, {25, 3, 200}};
    for (auto const& [ptime, blocks, step] : table) {
        restart();
        use_packet_time(ptime);
        use_packet_time(0);  // keeps the last one
        spoken = 0;
        speak(blocks * 6 - 1);
        std::vector<rtp_packet> const packets = sent();
        ASSERT_EQ(packets.size(), 5u) << ptime;
        for (int i = 0; i < 5; i++) {
            rtp_packet const& p = packets[static_cast<std::size_t>(i)];
            EXPECT_EQ(p.marker, i == 0);
            EXPECT_EQ(p.payload_type, audio_type);
            EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(i)) << ptime;
            EXPECT_EQ(p.ssrc, 0x11223344u);
            std::string said;
            for (int block = 1 + i * blocks; block <= (i + 1) * blocks; block++)
                said += pcm_of(block);
            EXPECT_TRUE(p.payload == said) << ptime << " packet " << i;
        }
    }
}

// ---- digits

/// The packets around one digit that starts after 6 blocks: those of audio before it, its event packets (of which the
/// first has duration `first`, each further one a packet time more), those with the end bit, the blocks in the first
/// packet of audio behind it.
struct event_row {
    int ptime, before, first, events, end_duration, ends, blocks_after;
};
constexpr event_row event_table[] = {{10, 6, 0, 35, 2800, 3, 1},  {20, 3, 160, 16, 2560, 3, 2},
                                     {30, 2, 240, 9, 2400, 3, 1}, {40, 1, 320, 7, 2240, 3, 4},
                                     {60, 1, 480, 3, 1920, 3, 4}, {5, 6, 0, 35, 2800, 3, 1},
                                     {200, 0, 0, 0, 0, 2, 16}};

TEST_F(sending, telephone_events_for_every_packet_time) {
    for (event_row const& row : event_table) {
        restart();
        use_packet_time(row.ptime);
        tested.send_dtmf(0x10B);  // only the low 8 bits count
        speak(80);
        std::vector<rtp_packet> const packets = sent();
        int const after = row.before + row.events + row.ends;
        ASSERT_GT(static_cast<int>(packets.size()), after) << row.ptime;
        for (int i = 0; i < static_cast<int>(packets.size()); i++) {
            SCOPED_TRACE(std::to_string(row.ptime) + " ms, packet " + std::to_string(i));
            rtp_packet const& p = packets[static_cast<std::size_t>(i)];
            bool const event = i >= row.before && i < after, end = i >= row.before + row.events;
            EXPECT_EQ(p.sequence, std::uint16_t(packets[0].sequence + i));
            EXPECT_EQ(p.marker, i == 0 || i == row.before || i == after);
            EXPECT_EQ(p.payload_type, event ? event_type : audio_type);
            EXPECT_EQ(p.timestamp - packets[0].timestamp,
                      static_cast<std::uint32_t>(row.ptime * 8 * (event ? row.before : i)));
            int const step = row.ptime < 10 ? 80 : row.ptime * 8;
            int const duration = end ? row.end_duration : row.first + (i - row.before) * step;
            if (event) {
                EXPECT_EQ(to_hex(p.payload),
                          (end ? "0B8A" : "0B0A") + to_hex(be16(static_cast<unsigned>(duration))));
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
        use_packet_time(30, no_events);
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
