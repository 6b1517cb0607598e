#pragma once

#include "lib/random.h"
#include "media/channel.h"
#include "tests/support/control_peer.h"
#include "tests/support/rtp_builder.h"

/// Eight idle channels and a call control that listens, for each test afresh; the random numbers are the same in
/// every run.
class media_fixture : public testing::Test {
public:
    using lines = std::vector<std::string>;

protected:
    explicit media_fixture(int log_threshold = -1) : peer(log_threshold) {
        utils::seed_rand(20240229);
        channels.resize(channel_count);
        for (int i = 0; i < channel_count; i++) {
            channels[i].set_id(i);
            channels[i].init();
        }
    }
    ~media_fixture() override {
        for (int i = 0; i < channel_count; i++)
            channels[i].init();
        channels.clear();
        ipv4 = ipv6 = true;
    }

    /// Linear PCM for every payload type in both directions, packets of 10 ms, SSRC 11223344.
    static void begin_call(channel& c) {
        c.init();
        c.set_codec(0, 0, -1, to_str(std::string(128, '\0')), 10);
        c.set_ssrc(to_str(from_hex("11223344")));
    }

    control_peer peer;
};

/// PCM of which every sample is `value`; 80 samples are 10 ms.
inline std::string pcm_of(int value, int samples = 80) {
    auto const sample = static_cast<std::int16_t>(value);
    std::string bytes;
    for (int i = 0; i < samples; i++)
        bytes.append(reinterpret_cast<char const*>(&sample), sizeof sample);
    return bytes;
}

/// 10 ms of linear PCM whose samples are the packet's name.
inline rtp_packet named_packet(int sequence, int name, std::uint32_t ssrc = 0xAAAA0001) {
    rtp_packet packet;
    packet.sequence = static_cast<std::uint16_t>(sequence);
    packet.timestamp = static_cast<std::uint32_t>(sequence) * 80;
    packet.ssrc = ssrc;
    packet.payload = pcm_of(name);
    return packet;
}

/// The next block that a channel plays: the number that all of its samples are.
inline int play(channel& c) {
    bool talk_spurt = false;
    std::string const block = to_string(c.get_samples(talk_spurt));
    std::int16_t sample = 0;
    block.copy(reinterpret_cast<char*>(&sample), sizeof sample);
    EXPECT_EQ(to_hex(block), to_hex(pcm_of(sample)));
    return sample;
}
