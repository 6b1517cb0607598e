#include <cstdint>
#include <map>
#include <optional>

#include "tests/support/media_fixture.h"
#include "tests/support/seed.h"

namespace {

struct arrival {
    rtp_packet packet;
    long long at_ns;
};

/// Reception and play-out of one channel of plain RTP over UDP, as a list of rules on standard containers.
class receive_model {
public:
    int latched = 0, playback_ended = 0;  // reports
    enum rule { resumed = 1, thrown_away = 2, late = 4, over_gap = 8 };
    int met = 0;  // rules that a run has come across
    std::string playback;

    void receive(arrival const& a) {
        rtp_packet const& p = a.packet;
        auto const now = static_cast<std::uint32_t>(a.at_ns / 125000);
        std::uint32_t const silence = now - last_arrival;
        if (!ssrc || *ssrc != p.ssrc) {
            if (ssrc && playing && silence < 800)
                return;
            buffer.clear();
            playing = false;
            ssrc = p.ssrc;
            latched++;
        }
        std::uint32_t const number = extended(p.sequence);
        if (number != 0 && number <= played && playing && silence < 4000) {
            played = number - 1;
            met |= resumed;
        }
        if (p.marker)
            start_over();
        if (!playing && number != 0) {
            played = number - 1;
            playing = true;
        }
        last_arrival = now;
        if (number <= played) {
            deepen(late);
            return;
        }
        auto const key = static_cast<std::int32_t>(number);
        bool const known = buffer.count(key) > 0;
        if (!buffer.empty() &&
            (buffer.size() > 400 || rounded_ms(a.at_ns - buffer.begin()->second.at_ns) > 3000)) {
            start_over();
            met |= thrown_away;
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
        if (pcm.empty() && has_output()) {
            bool const sequential = next_is_here();
            played = static_cast<std::uint32_t>(buffer.begin()->first);
            pcm = buffer.begin()->second.packet.payload;
            buffer.erase(buffer.begin());
            if (!sequential) {
                deepen(over_gap);
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
        std::uint32_t const cycle = played & 0xFFFF0000, position = played & 0xFFFF;
        if (sequence < 0x4000 && position > 0xC000)
            return cycle + 0x10000 + sequence;
        return (sequence > 0xC000 && position < 0x4000 ? cycle - 0x10000 : cycle) + sequence;
    }
    static long long rounded_ms(long long ns) { return (ns + 500000) / 1000000; }
    bool next_is_here() const { return static_cast<std::uint32_t>(buffer.begin()->first) == played + 1; }
    void deepen(rule why) {
        in_order = 0;
        depth = std::min(depth + 1, 16);
        met |= why;
    }
    void start_over() {
        buffer.clear();
        in_order = 0;
        depth = 1;
        playing = false;
    }

    std::optional<std::uint32_t> ssrc;
    std::map<std::int32_t, arrival> buffer;
    std::uint32_t played = 32768, last_arrival = 0;
    bool playing = false;
    int depth = 1, in_order = 0;
    std::string pcm;
};

/// What arrives within each of so many times 10 ms from a sender behind a bad network; how bad is drawn once.
std::vector<std::vector<arrival>> bad_network(dice& random, int ticks) {
    int const loss = random.below(3) * random.below(15),
              duplicates = random.below(2) * random.below(10);  // percent
    int const delay_spread_ms = random.below(2) * random.below(200),
              restarts = random.below(2) * random.below(4);
    int const packet_ms = 10 * random.between(1, 3);
    bool const wild = random.below(3) == 0;  // jumps of time and packets of a second sender
    int sequence = random.below(4) == 0 ? random.between(-3, 3) : random.below(65536);
    std::uint32_t ssrc = random.word();
    std::multimap<int, rtp_packet> sent;  // by time of arrival in ms
    for (int at_ms = 0, name = 0; at_ms < 10 * ticks; at_ms += packet_ms) {
        if (random.below(1000) < restarts * 3) {
            int const jumps[] = {random.below(65536), random.between(-600, 600),
                                 random.between(0x2000, 0x6000), 0};
            int const jump = jumps[random.below(4)];
            sequence += jump;
            ssrc = jump ? ssrc : random.word();
        }
        constexpr int odd_sizes[] = {0, 1, 40, 79, 81, 125, 160, 400};
        rtp_packet p = named_packet(sequence++, 0, wild && random.chance(1) ? ssrc ^ 1 : ssrc);
        p.marker = random.below(1000) < restarts;
        p.payload = pcm_of(++name & 0x7FFF, random.chance(2) ? odd_sizes[random.below(8)] : packet_ms * 8);
        for (int copies = 1 + random.chance(duplicates); copies > 0; copies--)
            if (!random.chance(loss))
                sent.emplace(at_ms + random.below(delay_spread_ms + 1), p);
    }
    std::vector<std::vector<arrival>> arrivals;
    for (long long now_ns = 1700000000000000000; static_cast<int>(arrivals.size()) < ticks;
         now_ns += 10000000) {
        if (wild && random.chance(1))
            now_ns += 1000000LL * random.between(-300, 4000);
        arrivals.emplace_back();
        int const until_ms = 10 * static_cast<int>(arrivals.size());
        for (; !sent.empty() && sent.begin()->first < until_ms; sent.erase(sent.begin()))
            arrivals.back().push_back({sent.begin()->second, now_ns + random.below(10000000)});
    }
    return arrivals;
}

class jitter_model : public media_fixture {};

TEST_F(jitter_model, agrees_with_the_channel_on_a_bad_network) {
    int rules_met = 0;  // runs that have come across all of them
    seed_range{1, 120}.roll([&](dice& random) {
        channel& tested = channels[random.below(channel_count)];
        begin_call(tested);
        peer.reports();
        receive_model model;
        auto const arrivals = bad_network(random, 3000);
        // The device takes its blocks a little faster or slower than they come, or stops now and then.
        int const drift = random.between(-30, 30);
        bool const pauses = random.below(3) == 2;
        for (std::size_t tick = 0; tick < arrivals.size(); tick++) {
            for (arrival const& a : arrivals[tick]) {
                tested.process_rtp_data(to_str(a.packet.build()), ip_port(), false, rtimestamp(a.at_ns));
                model.receive(a);
                ASSERT_EQ(tested.output_available(), model.has_output()) << "tick " << tick;
            }
            if (random.below(2000) == 0) {
                std::string const announcement = pcm_of(1234, random.below(500));
                tested.add_playback(to_str(announcement));
                model.playback += announcement;
            }
            int blocks = random.below(1000) >= std::abs(drift) ? 1 : drift < 0 ? 0 : 2;
            if (pauses && tick / 700 % 2 == 1)
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
        rules_met += model.met == 15;
    });
    EXPECT_TRUE(std::getenv("FXSMEDIA_TEST_SEED") != nullptr || rules_met > 2) << "the network was too good";
}

}  // namespace
