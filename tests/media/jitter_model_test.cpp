#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/seed.h"

namespace {

struct arrival {
    rtp_packet packet;
    long long at_ns;
};

/// Reception and play-out of one channel of plain RTP over UDP, as a list of rules on standard containers.
class receive_model {
public:
    int latched = 0;                                           // new-SSRC reports
    int playback_ended = 0;                                    // playback-empty reports
    int resumed = 0, thrown_away = 0, late = 0, over_gap = 0;  // what a run has come across
    std::string playback;

    void receive(arrival const& a) {
        rtp_packet const& p = a.packet;
        auto const now = static_cast<std::uint32_t>(a.at_ns / 125000);
        std::uint32_t const silence = now - last_arrival;
        if (!ssrc || *ssrc != p.ssrc) {
            if (ssrc && playing && silence < 800)
                return;
            if (ssrc) {
                buffer.clear();
                playing = false;
            }
            ssrc = p.ssrc;
            latched++;
        }
        std::uint32_t const number = extended(p.sequence);
        if (number != 0 && number <= played && playing && silence < 4000) {
            played = number - 1;
            resumed++;
        }
        bool first = p.marker;
        if (p.marker)
            start_over();
        if (!playing && number != 0) {
            played = number - 1;
            playing = first = true;
        }
        last_arrival = now;
        if (number <= played) {
            in_order = 0;
            depth = std::min(depth + 1, 16);
            late++;
            return;
        }
        auto const key = static_cast<std::int32_t>(number);
        bool const known = buffer.count(key) > 0;
        if (!buffer.empty() &&
            (buffer.size() > 400 || rounded_ms(a.at_ns - buffer.begin()->second.at_ns) > 3000)) {
            start_over();
            thrown_away++;
        }
        if (!known) {
            buffer[key] = a;
            playing = true;
        }
    }

    bool has_output() const {
        return !pcm.empty() || !playback.empty() ||
               (!buffer.empty() && (static_cast<int>(buffer.size()) >= depth || next_is_here()));
    }

    std::string next_block() {
        if (pcm.empty() && !playback.empty()) {
            pcm = playback.substr(0, 160);
            playback.erase(0, 160);
            pcm.resize(160, '\0');
            playback_ended += playback.empty();
        }
        if (pcm.empty() && !buffer.empty() && (next_is_here() || static_cast<int>(buffer.size()) >= depth)) {
            bool const sequential = next_is_here();
            played = static_cast<std::uint32_t>(buffer.begin()->first);
            pcm = buffer.begin()->second.packet.payload;
            buffer.erase(buffer.begin());
            if (!sequential) {
                in_order = 0;
                depth = std::min(depth + 1, 16);
                over_gap++;
            } else if (++in_order == 128) {
                in_order = 0;
                depth = std::max(depth - 1, 1);
            }
        }
        if (pcm.size() < 160)
            pcm.assign(160, '\0');
        std::string const block = pcm.substr(0, 160);
        pcm.erase(0, 160);
        return block;
    }

private:
    std::uint32_t extended(std::uint32_t sequence) const {
        std::uint32_t const cycle = played >> 16, position = played & 0xFFFF;
        if (sequence < 0x4000 && position > 0xC000)
            return ((cycle + 1) << 16) + sequence;
        if (sequence > 0xC000 && position < 0x4000)
            return ((cycle - 1) << 16) + sequence;
        return (cycle << 16) + sequence;
    }
    static long long rounded_ms(long long ns) { return (ns + 500000) / 1000000; }
    bool next_is_here() const { return static_cast<std::uint32_t>(buffer.begin()->first) == played + 1; }
    void start_over() {
        buffer.clear();
        in_order = 0;
        depth = 1;
        playing = false;
    }

    std::optional<std::uint32_t> ssrc;
    std::map<std::int32_t, arrival> buffer;
    std::uint32_t played = 32768;
    std::uint32_t last_arrival = 0;
    bool playing = false;
    int depth = 1;
    int in_order = 0;
    std::string pcm;
};

/// A sender behind a bad network; how bad is drawn once for each.
class bad_network {
public:
    explicit bad_network(unsigned seed)
        : random(seed),
          loss(random.below(3) * random.below(15)),
          duplicates(random.below(2) * random.below(10)),
          delay_spread_ms(random.below(2) * random.below(200)),
          restarts(random.below(2) * random.below(4)),
          wild(random.below(3) == 0),
          packet_ms(10 * random.between(1, 3)) {
        sequence = std::uint16_t(random.below(4) == 0 ? random.between(-3, 3) : random.below(65536));
        ssrc = random.word();
    }

    /// What arrives within the next 10 ms, in the order of arrival.
    std::vector<arrival> next_10ms() {
        now_ns += 10000000;
        if (wild && random.chance(1))
            now_ns += 1000000LL * random.between(-300, 4000);
        if (++tick % (packet_ms / 10) == 0)
            send();
        std::vector<arrival> arrived;
        while (!under_way.empty() && under_way.begin()->first <= tick * 10) {
            arrived.push_back({under_way.begin()->second, now_ns + random.below(10000000)});
            under_way.erase(under_way.begin());
        }
        return arrived;
    }

    dice random;

private:
    void send() {
        if (random.below(1000) < restarts * 3)
            change_stream();
        rtp_packet p;
        p.sequence = sequence++;
        p.ssrc = random.chance(1) && wild ? ssrc ^ 1 : ssrc;
        p.marker = random.below(1000) < restarts;
        int const odd_sizes[] = {0, 1, 40, 79, 81, 125, 160, 400};
        p.payload =
            pcm_of(++name & 0x7FFF, random.below(50) == 0 ? odd_sizes[random.below(8)] : packet_ms * 8);
        for (int copies = 1 + random.chance(duplicates); copies > 0; copies--)
            if (!random.chance(loss))
                under_way.emplace(tick * 10 + random.below(delay_spread_ms + 1), p);
    }
    void change_stream() {
        int const jumps[] = {random.below(65536), random.between(-600, 600), random.between(0x2000, 0x6000)};
        int const choice = random.below(4);
        if (choice == 3)
            ssrc = random.word();
        else
            sequence = std::uint16_t(sequence + jumps[choice]);
    }

    int loss, duplicates, delay_spread_ms, restarts;
    bool wild;  // jumps of time and packets of a second sender
    int packet_ms;
    std::uint16_t sequence;
    std::uint32_t ssrc;
    int name = 0;
    long long now_ns = 1700000000000000000;
    int tick = 0;
    std::multimap<int, rtp_packet> under_way;  // by time of arrival in ms
};

class jitter_model : public media_fixture {};

TEST_F(jitter_model, agrees_with_the_channel_on_a_bad_network) {
    int rules_met = 0;  // runs that have come across all of them
    seed_range{1, 120}.for_each([&](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        channel& tested = channels[static_cast<int>(seed % channel_count)];
        tested.init();
        tested.set_codec(0, 0, -1, to_str(std::string(128, '\0')), 20);
        peer.reports();
        receive_model model;
        bad_network network(seed);
        ip_port const sender(to_str(from_hex("0A000001")), 5004);
        // The device takes its blocks a little faster or slower than they come, or stops now and then.
        int const drift = network.random.between(-30, 30), pauses = network.random.below(3);
        for (int tick = 0; tick < 3000; tick++) {
            for (arrival const& a : network.next_10ms()) {
                tested.process_rtp_data(to_str(a.packet.build()), sender, false, rtimestamp(a.at_ns));
                model.receive(a);
                ASSERT_EQ(tested.output_available(), model.has_output()) << "tick " << tick;
            }
            if (network.random.below(2000) == 0) {
                std::string const announcement = pcm_of(1234, network.random.below(500));
                tested.add_playback(to_str(announcement));
                model.playback += announcement;
            }
            int blocks = 1;
            if (network.random.below(1000) < std::abs(drift))
                blocks = drift < 0 ? 0 : 2;
            if (pauses > 1 && tick / 700 % 2 == 1)
                blocks = 0;
            while (blocks-- > 0) {
                ASSERT_TRUE(to_string(tested.get_samples()) == model.next_block()) << "tick " << tick;
                ASSERT_EQ(tested.output_available(), model.has_output()) << "tick " << tick;
            }
        }
        std::map<unsigned, int> reported;
        for (std::string const& report : peer.reports())
            reported[get_be16(report, 0)]++;
        EXPECT_EQ(reported[24], model.latched);
        EXPECT_EQ(reported[28], model.playback_ended);
        rules_met += model.resumed > 0 && model.thrown_away > 0 && model.late > 0 && model.over_gap > 0;
    });
    EXPECT_TRUE(std::getenv("FXSMEDIA_TEST_SEED") != nullptr || rules_met > 2) << "the network was too good";
}

}  // namespace
