#include "dsp/digit_listener.h"

#include <spandsp.h>

#include <cstring>

#include "tests/support/media_fixture.h"
#include "tests/support/seed.h"
#include "tests/support/stepped_lines.h"

namespace {

constexpr char keys[] = "0123456789*#ABCD";
constexpr int events = 101;

/// Line 2 with a channel whose packets, linear PCM and telephone events, come to `far_end`.
struct detecting_line : media_fixture {
    detecting_line() : media_fixture(0), switched_on(extensions.detect = true), tested(devmgrs[2]) {}
    ~detecting_line() override { extensions = extension_set(); }

    void call(int event_type) {
        channels[0].open(20000, 60000, 0);
        channels[0].set_codec(0, 11, event_type, str::null, 10);
        channels[0].set_destination(far_end.address(), ip_port(), false);
        channels[0].set_tdm_channel(2);
        peer.reports();
    }
    /// Says samples block by block; what is left of a block waits for more.
    void say(std::vector<std::int16_t> const& samples) {
        pending.append(reinterpret_cast<char const*>(samples.data()), 2 * samples.size());
        for (; pending.size() >= 160; pending.erase(0, 160)) {
            tested.recv_device(to_str(pending.substr(0, 160)));
            collect();
        }
    }
    void collect() {
        for (std::string const& datagram : far_end.received(channels[0].get_fd_rtp4())) {
            rtp_packet const packet = rtp_packet::parse(datagram);
            if (packet.payload_type == 11)
                audio += packet.payload;
            else if (packet.timestamp != last_event)
                sent_events += keys[static_cast<int>(packet.payload[0])], last_event = packet.timestamp;
        }
    }
    /// A key for so many ms at this level in dBm0, the upper tone twist dB stronger, and silence behind it.
    static std::vector<std::int16_t> press(char key, int on_ms, int off_ms, int level, int twist) {
        dtmf_tx_state_t* const generator = dtmf_tx_init(nullptr);
        dtmf_tx_set_level(generator, level, twist);
        dtmf_tx_set_timing(generator, on_ms, off_ms);
        dtmf_tx_put(generator, &key, 1);
        std::vector<std::int16_t> tone(static_cast<std::size_t>(8 * (on_ms + off_ms)));
        dtmf_tx(generator, tone.data(), static_cast<int>(tone.size()));
        dtmf_tx_free(generator);
        return tone;
    }
    /// Keys that call control was told.
    std::string told() {
        std::string all;
        for (std::string const& report : peer.reports())
            if (auto const at = report.find("key 2 "); at != report.npos)
                all += report.substr(at + 6);
        return all;
    }
    /// Digits that an independent detector finds in what was sent.
    std::string heard() {
        dtmf_rx_state_t* const detector = dtmf_rx_init(nullptr, nullptr, nullptr);
        std::vector<std::int16_t> samples(audio.size() / 2);
        std::memcpy(samples.data(), audio.data(), audio.size());
        dtmf_rx(detector, samples.data(), static_cast<int>(samples.size()));
        char digits[1024] = {};
        dtmf_rx_get(detector, digits, sizeof digits - 1);
        dtmf_rx_free(detector);
        return digits;
    }

    bool switched_on;
    stepped_lines telephone;
    devmgr& tested;
    udp_peer far_end;
    std::string pending, audio, sent_events;
    std::uint32_t last_event = 0;
};

TEST_F(detecting_line, a_key_is_told_once_and_leaves_as_an_event_alone) {
    dice random(61);
    call(events);
    std::string pressed;
    int longest = 0, total = 0;
    for (int n = 0; n < 160; n++) {
        char const key = keys[random.below(16)];
        pressed += key;
        std::size_t const before = audio.size();
        say(press(key, random.between(50, 300), random.between(600, 625), -8 - random.below(7), random.between(-6, 6)));
        int leaked = 0;
        for (std::size_t at = before; at + 1 < audio.size(); at += 2)
            leaked += audio[at] != 0 || audio[at + 1] != 0;
        longest = std::max(longest, leaked);
        total += leaked;
    }
    std::printf("of a tone %.1f ms are heard, at most %.1f ms\n", total / 160.0 / 8, longest / 8.0);
    EXPECT_LE(longest, 40) << "samples, 5 ms";
    EXPECT_EQ(told(), pressed);
    EXPECT_EQ(sent_events, pressed);
    EXPECT_EQ(heard(), "");
}

TEST_F(detecting_line, audio_is_late_with_events_and_untouched_without) {
    dice random(62);
    std::vector<std::int16_t> noise;
    for (int i = 0; i < 80 * 300; i++)
        noise.push_back(static_cast<std::int16_t>(random.between(-3000, 3000)));
    std::string const said(reinterpret_cast<char const*>(noise.data()), 2 * noise.size());
    call(events);
    say(noise);
    EXPECT_TRUE(audio == std::string(320, '\0') + said.substr(0, said.size() - 320));
    call(-1);
    audio.clear();
    say(noise);
    EXPECT_TRUE(audio == said);
    audio.clear();
    say(press('5', 100, 0, -10, 0));
    EXPECT_EQ(heard() + told() + sent_events, "55");
}

}  // namespace
