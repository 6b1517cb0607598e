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
constexpr std::uint32_t our_ssrc = 0x53535243;

/// Channel 2 sends linear PCM to a far end on the loopback; block n of a test has samples of value n.
class sending : public media_fixture {
protected:
    sending() : tested(channels[2]) {
        tested.open(20000, 60000, 0);
        EXPECT_GT(tested.get_rtp_port(), 0);
        tested.set_ssrc(to_str(be32(our_ssrc)));
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
    std::string spoken_blocks(int first, int count) const {
        std::string pcm;
        for (int i = 0; i < count; i++)
            pcm += pcm_of(first + i);
        return pcm;
    }

    channel& tested;
    udp_peer far_end;
    int spoken = 0;
};

TEST_F(sending, header_byte_for_byte) {
    use_packet_time(10);
    speak(1);
    std::string const datagram = far_end.received(tested.get_fd_rtp4()).at(0);
    EXPECT_EQ(datagram.size(), 172u);
    EXPECT_EQ(to_hex(datagram.substr(0, 2)), "808B") << "version 2; the first packet has the marker";
    EXPECT_EQ(to_hex(datagram.substr(8, 6)), "535352430100");
    speak(1);
    EXPECT_EQ(to_hex(far_end.received(tested.get_fd_rtp4()).at(0).substr(0, 2)), "800B");
}

TEST_F(sending, audio_is_packed_up_to_the_packet_time) {
    struct {
        int ptime, blocks;
        std::uint32_t step;
    } const table[] = {{10, 1, 80},  {20, 2, 160}, {30, 3, 240},    {40, 4, 320},
                       {60, 6, 480}, {5, 1, 40},   {200, 20, 1600}, {25, 3, 200}};
    for (auto const& [ptime, blocks, step] : table) {
        tested.set_ssrc(str("XYZ!"));
        use_packet_time(ptime);
        spoken = 0;
        speak(blocks * 6 - 1);
        EXPECT_EQ(sent().size(), 5u) << ptime;
        spoken = blocks * 6 - 1;
        speak(1);
        sent();
        spoken = 0;
        speak(blocks * 5);
        std::vector<rtp_packet> const packets = sent();
        ASSERT_EQ(packets.size(), 5u) << ptime;
        for (int i = 0; i < 5; i++) {
            rtp_packet const& p = packets[static_cast<std::size_t>(i)];
            EXPECT_FALSE(p.marker);
            EXPECT_EQ(p.payload_type, audio_type);
            EXPECT_EQ(p.sequence, std::uint16_t(packets[0].sequence + i));
            EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(i)) << ptime;
            EXPECT_EQ(p.ssrc, 0x58595A21u);
            EXPECT_TRUE(p.payload == spoken_blocks(1 + i * blocks, blocks)) << ptime << " packet " << i;
        }
    }
}

TEST_F(sending, packet_time_zero_keeps_the_last_one) {
    use_packet_time(30);
    use_packet_time(0);
    use_packet_time(-20);
    speak(6);
    EXPECT_EQ(sent().size(), 2u);
}

TEST_F(sending, the_first_numbers_follow_from_the_random_draws) {
    std::srand(4711);
    auto const draw = [] { return static_cast<std::uint32_t>(std::rand()); };
    std::uint32_t const sequence = draw() % 32768 + 16384, high = draw() << 15, low = draw();
    utils::seed_rand(4711);
    tested.init();
    tested.open(20000, 60000, 0);
    tested.set_destination(far_end.address(), ip_port(), false);
    use_packet_time(10);
    speak(1);
    rtp_packet const first = sent().at(0);
    EXPECT_TRUE(first.marker);
    EXPECT_EQ(first.ssrc, 0u) << "the last call's SSRC is forgotten";
    EXPECT_EQ(first.sequence, sequence);
    EXPECT_EQ(first.timestamp, (high + low) % 53687091 * 80);
}

TEST_F(sending, without_a_destination_the_numbers_go_on_and_the_sequence_wraps) {
    use_packet_time(20);
    speak(2);
    rtp_packet const before = sent().at(0);
    tested.set_destination(ip_port(), ip_port(), false);
    std::uint32_t const unseen = 0xFFFFu - before.sequence - 1;
    for (std::uint32_t i = 0; i < unseen; i++) {
        str payload("x");
        tested.send_rtp(audio_type, payload, true);
    }
    EXPECT_EQ(sent().size(), 0u);
    tested.set_destination(far_end.address(), ip_port(), false);
    speak(6);
    std::vector<rtp_packet> const after = sent();
    ASSERT_EQ(after.size(), 3u);
    EXPECT_EQ(after[0].sequence, 0xFFFF);
    EXPECT_EQ(after[1].sequence, 0);
    EXPECT_EQ(after[2].sequence, 1);
    EXPECT_EQ(after[0].timestamp, before.timestamp + 160 * (unseen + 1));
    EXPECT_EQ(after[2].timestamp, before.timestamp + 160 * (unseen + 3));
    EXPECT_FALSE(after[0].marker);
}

TEST_F(sending, the_family_follows_the_destination) {
    udp_peer far_end6(true);
    use_packet_time(10);
    tested.set_destination(far_end6.address(), ip_port(), false);
    speak(3);
    std::vector<std::string> const over_ipv6 = far_end6.received(tested.get_fd_rtp6());
    ASSERT_EQ(over_ipv6.size(), 3u);
    EXPECT_EQ(sent().size(), 0u);
    tested.set_destination(far_end.address(), ip_port(), false);
    speak(1);
    EXPECT_EQ(sent().at(0).sequence, std::uint16_t(rtp_packet::parse(over_ipv6[2]).sequence + 1));
    EXPECT_EQ(far_end6.received(tested.get_fd_rtp6()).size(), 0u);
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
        tested.init();
        tested.open(20000, 60000, 0);
        tested.set_destination(far_end.address(), ip_port(), false);
        use_packet_time(row.ptime);
        std::uint32_t const step = static_cast<std::uint32_t>(row.ptime) * 8;
        tested.send_dtmf(0x10B);  // only the low 8 bits count
        speak(80);
        std::vector<rtp_packet> const packets = sent();
        auto const before = static_cast<std::size_t>(row.audio_before);
        auto const events = static_cast<std::size_t>(row.count + row.ends);
        ASSERT_GT(packets.size(), before + events) << row.ptime;
        for (std::size_t i = 0; i < packets.size(); i++) {
            std::string const where = std::to_string(row.ptime) + " ms, packet " + std::to_string(i);
            rtp_packet const& p = packets[i];
            EXPECT_EQ(p.sequence, std::uint16_t(packets[0].sequence + i)) << where;
            EXPECT_EQ(p.marker, i == 0 || i == before || i == before + events) << where;
            if (i < before || i >= before + events) {
                EXPECT_EQ(p.payload_type, audio_type) << where;
                EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(i)) << where;
                continue;
            }
            EXPECT_EQ(p.payload_type, event_type) << where;
            EXPECT_EQ(p.timestamp - packets[0].timestamp, step * static_cast<std::uint32_t>(before)) << where;
            int const n = static_cast<int>(i - before);
            bool const end = n >= row.count;
            int const duration = end ? row.end_duration : row.first_duration + n * row.step;
            EXPECT_EQ(to_hex(p.payload), to_hex("\x0B" + std::string(end ? "\x8A" : "\x0A") +
                                                be16(static_cast<unsigned>(duration))))
                << where;
        }
        // What was collected before the tone is dropped; 6 blocks of silence follow it.
        std::string const silence(160u * static_cast<std::size_t>(std::min(row.audio_blocks_after, 6)), '\0');
        rtp_packet const& after = packets[before + events];
        EXPECT_EQ(after.payload.size(), 160u * static_cast<std::size_t>(row.audio_blocks_after)) << row.ptime;
        EXPECT_TRUE(after.payload.starts_with(silence)) << row.ptime;
    }
}

TEST_F(sending, an_event_may_start_within_a_packet) {
    use_packet_time(20);
    speak(1);
    tested.send_dtmf(5);
    speak(60);
    std::vector<rtp_packet> const packets = sent();
    std::vector<std::string> events;
    for (rtp_packet const& p : packets)
        if (p.payload_type == event_type)
            events.push_back(to_hex(p.payload));
    ASSERT_EQ(events.size(), 19u);
    EXPECT_EQ(events[0], "050A0000");
    EXPECT_EQ(events[1], "050A00A0");
    EXPECT_EQ(events[15], "050A0960");
    for (std::size_t i = 16; i < 19; i++)
        EXPECT_EQ(events[i], "058A0A00");
    EXPECT_TRUE(packets[0].payload == pcm_of(1) + pcm_of(0));
    EXPECT_EQ(packets[22].payload_type, audio_type);
    EXPECT_EQ(packets[22].payload.size(), 160u) << "the rest of the tone's last packet time holds nothing";
}

TEST_F(sending, queued_digits_follow_each_other_in_a_rhythm_of_500_ms) {
    use_packet_time(20);
    for (int const digit : {1, 10, 1})
        tested.send_dtmf(digit);
    speak(150);
    std::vector<rtp_packet> const packets = sent();
    ASSERT_EQ(packets.size(), 75u);
    for (int digit = 0; digit < 3; digit++)
        for (int i = 0; i < 25; i++) {
            rtp_packet const& p = packets[static_cast<std::size_t>(25 * digit + i)];
            bool const event = i >= 3 && i < 22;
            ASSERT_EQ(p.payload_type, event ? event_type : audio_type) << digit << " " << i;
            EXPECT_EQ(p.marker, i == 3 || i == 22 || (digit == 0 && i == 0)) << digit << " " << i;
            EXPECT_EQ(p.timestamp - packets[0].timestamp,
                      160u * static_cast<std::uint32_t>(25 * digit + (event ? 3 : i)))
                << digit << " " << i;
            if (event)
                EXPECT_EQ(p.payload[0], digit == 1 ? 10 : 1);
            else
                EXPECT_TRUE(p.payload == std::string(320, '\0')) << "silence around the tone";
        }
    speak(2);
    EXPECT_TRUE(sent().at(0).payload == pcm_of(spoken - 1) + pcm_of(spoken)) << "speech again";
}

TEST_F(sending, without_a_payload_type_of_events_digits_are_in_the_audio) {
    for (int const no_events : {0, -1}) {
        use_packet_time(10, no_events);
        tested.send_dtmf(3);
        tested.send_dtmf(3);
        spoken = 0;
        speak(101);
        std::vector<rtp_packet> const packets = sent();
        ASSERT_EQ(packets.size(), 101u);
        for (std::size_t start : {0u, 50u}) {
            dtmf_synthesizer reference;  // a digit starts at the tables' beginning, even the same one again
            for (std::size_t tick = 0; tick < 50; tick++) {
                bool const tone = tick >= 6 && tick < 44;
                std::string const expected = tone ? to_string(reference.get_samples(3, 0)) : pcm_of(0);
                ASSERT_EQ(to_hex(packets[start + tick].payload), to_hex(expected)) << start + tick;
                ASSERT_EQ(packets[start + tick].payload_type, audio_type);
            }
        }
        EXPECT_TRUE(packets[100].payload == pcm_of(101));
    }
}

TEST_F(sending, a_longer_block_takes_a_step_of_the_digit_for_each_10_ms) {
    use_packet_time(30, 0);
    tested.send_dtmf(7);
    dtmf_synthesizer reference;
    std::string expected;
    for (int tick = 0; tick < 51; tick++)
        expected += tick == 50               ? pcm_of(9)
                    : tick >= 6 && tick < 44 ? to_string(reference.get_samples(7, 0))
                                             : pcm_of(0);
    for (int i = 0; i < 17; i++)
        tested.process_audio(to_str(pcm_of(9, 240)));
    std::string all;
    for (rtp_packet const& p : sent())
        all += p.payload;
    EXPECT_EQ(to_hex(all), to_hex(expected));
}

}  // namespace
