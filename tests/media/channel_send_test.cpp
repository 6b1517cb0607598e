#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dsp/dtmf_synthesizer.h"
#include "media/channel.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/udp_peer.h"

namespace {

constexpr int audio_type = 11, event_type = 101;

/// Channel 2 sends linear PCM to a far end on the loopback; block n of a test has samples of value n.
class sending : public media_fixture {
protected:
    sending() : tested(channels[2]) { restart(); }
    void restart() {
        tested.init();
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
        tested.set_ssrc(str("XYZ!"));
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
            EXPECT_EQ(p.sequence, std::uint16_t(packets[0].sequence + i));
            EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(i)) << ptime;
            EXPECT_EQ(p.ssrc, 0x58595A21u);
            std::string said;
            for (int block = 1 + i * blocks; block <= (i + 1) * blocks; block++)
                said += pcm_of(block);
            EXPECT_TRUE(p.payload == said) << ptime << " packet " << i;
        }
    }
}

// ---- digits

/// The event packets of one digit that starts between two packets: the first has duration `step`, each further one
/// `step` more, `count` of them; then `ends` packets with the end bit and `end_duration`.
struct event_row {
    int ptime;
    int first_duration, step, count;
    int end_duration, ends;
    int audio_before,
        audio_blocks_after;  // packets of audio before the tone; blocks in the first one after it
};
constexpr event_row event_table[] = {{10, 0, 80, 35, 2800, 3, 6, 1},   {20, 160, 160, 16, 2560, 3, 3, 2},
                                     {30, 240, 240, 9, 2400, 3, 2, 1}, {40, 320, 320, 7, 2240, 3, 1, 4},
                                     {60, 480, 480, 3, 1920, 3, 1, 4}, {5, 0, 80, 35, 2800, 3, 6, 1},
                                     {200, 0, 0, 0, 0, 2, 0, 16}};

TEST_F(sending, telephone_events_for_every_packet_time) {
    for (event_row const& row : event_table) {
        restart();
        use_packet_time(row.ptime);
        std::uint32_t const step = static_cast<std::uint32_t>(row.ptime) * 8;
        tested.send_dtmf(0x10B);  // only the low 8 bits count
        speak(80);
        std::vector<rtp_packet> const packets = sent();
        auto const before = static_cast<std::size_t>(row.audio_before);
        auto const events = static_cast<std::size_t>(row.count + row.ends);
        ASSERT_GT(packets.size(), before + events) << row.ptime;
        for (std::size_t i = 0; i < packets.size(); i++) {
            SCOPED_TRACE(std::to_string(row.ptime) + " ms, packet " + std::to_string(i));
            rtp_packet const& p = packets[i];
            EXPECT_EQ(p.sequence, std::uint16_t(packets[0].sequence + i));
            EXPECT_EQ(p.marker, i == 0 || i == before || i == before + events);
            if (i < before || i >= before + events) {
                EXPECT_EQ(p.payload_type, audio_type);
                EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(i));
                continue;
            }
            EXPECT_EQ(p.payload_type, event_type);
            EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(before));
            int const n = static_cast<int>(i - before);
            bool const end = n >= row.count;
            int const duration = end ? row.end_duration : row.first_duration + n * row.step;
            EXPECT_EQ(to_hex(p.payload), to_hex("\x0B" + std::string(end ? "\x8A" : "\x0A") +
                                                be16(static_cast<unsigned>(duration))));
        }
        // What was collected before the tone is dropped; 6 blocks of silence follow it.
        std::string const silence(160u * static_cast<std::size_t>(std::min(row.audio_blocks_after, 6)), '\0');
        rtp_packet const& after = packets[before + events];
        EXPECT_EQ(after.payload.size(), 160u * static_cast<std::size_t>(row.audio_blocks_after)) << row.ptime;
        EXPECT_TRUE(after.payload.starts_with(silence)) << row.ptime;
    }
}

TEST_F(sending, queued_digits_follow_each_other_in_a_rhythm_of_500_ms) {
    use_packet_time(20);
    for (int const digit : {1, 10, 1})
        tested.send_dtmf(digit);
    speak(152);
    std::vector<rtp_packet> const packets = sent();
    ASSERT_EQ(packets.size(), 76u);
    for (unsigned i = 0; i < 75; i++) {
        rtp_packet const& p = packets[i];
        bool const event = i % 25 >= 3 && i % 25 < 22;
        ASSERT_EQ(p.payload_type, event ? event_type : audio_type) << i;
        EXPECT_EQ(p.timestamp - packets[0].timestamp, 160u * (event ? i / 25 * 25 + 3 : i)) << i;
        EXPECT_TRUE(event ? p.payload[0] == (i / 25 == 1 ? 10 : 1) : p.payload == std::string(320, '\0'))
            << i;
    }
    EXPECT_TRUE(packets[75].payload == pcm_of(151) + pcm_of(152)) << "speech again";
}

// Blocks of 30 ms take three steps of the digit.
TEST_F(sending, without_a_payload_type_of_events_digits_are_in_the_audio) {
    for (int const no_events : {0, -1}) {
        use_packet_time(30, no_events);
        tested.send_dtmf(3);
        tested.send_dtmf(3);
        std::string expected, all;
        for (int digit = 0; digit < 2; digit++) {
            dtmf_synthesizer reference;  // a digit starts at the tables' beginning, even the same one again
            for (int tick = 0; tick < 50; tick++)
                expected += tick >= 6 && tick < 44 ? to_string(reference.get_samples(3, 0)) : pcm_of(0);
        }
        for (int i = 0; i < 34; i++)
            tested.process_audio(to_str(pcm_of(9, 240)));
        for (rtp_packet const& p : sent())
            all += p.payload;
        EXPECT_EQ(to_hex(all), to_hex(expected + pcm_of(9, 160)));
    }
}

}  // namespace
