#include "media/jitter_buffer.h"

#include <map>

#include <gtest/gtest.h>

#include "tests/support/seed.h"

namespace {

constexpr long long ms = 1000000;

/// Numbers in the order in which they arrive; -n: n packets are asked for, and what is due is played.
std::vector<int> played(std::vector<int> const& steps) {
    jitter_buffer tested;
    std::vector<int> all;
    for (int const step : steps) {
        if (step > 0)
            tested.put(static_cast<std::uint32_t>(step), false, {step, rtimestamp(0), false, str()});
        for (int asked = step; asked < 0 && tested.due(); asked++)
            all.push_back(tested.take().played.codec);
    }
    return all;
}

TEST(jitter_buffer, a_gap_waits_for_as_many_packets_as_the_depth_says) {
    using order = std::vector<int>;
    struct {
        order steps, expected;
    } const table[] = {
        {{10, 11, 12, -9}, {10, 11, 12}},
        {{10, -1, 12, -9}, {10, 12}},                                      // depth 1: played over at once, depth 2
        {{10, -1, 12, -1, 14, -9}, {10, 12}},                              // depth 2: waits
        {{10, -1, 12, -1, 14, -9, 13, -9}, {10, 12, 13, 14}},              // the gap closes
        {{10, -1, 12, -1, 14, -9, 15, -9}, {10, 12, 14, 15}},              // or two are there: depth 3
        {{10, -1, 12, 11, -9}, {10, 11, 12}},                              // overtaken
        {{10, 12, 11, 11, 12, -9, 11, 13, -9, 15, -9}, {10, 11, 12, 13}},  // copies; a late one counts as a gap does
        {{20, -1, 19, 18, 21, 23, -9, 24, -9, 25, -9}, {20, 21, 23, 24, 25}},
    };
    for (auto const& [steps, expected] : table)
        EXPECT_EQ(played(steps), expected) << &steps - &table[0].steps;
}

TEST(jitter_buffer, the_128th_packet_in_sequence_lowers_the_depth) {
    for (int const run : {127, 128}) {
        std::vector<int> steps{10, -1, 12, -1};  // depth 2
        for (int n = 13; n < 13 + run; n++)
            steps.insert(steps.end(), {n, -1});
        int const behind_a_gap = 14 + run;
        steps.insert(steps.end(), {behind_a_gap, -1});
        EXPECT_EQ(played(steps).back() == behind_a_gap, run == 128);
    }
}

/// The same as a list of rules on standard containers.
struct buffer_model {
    std::map<std::int32_t, jitter_buffer::packet> held;
    std::uint32_t last = 32768;
    bool playing = false;
    int depth = 1, run = 0;

    void start_over() {
        held.clear();
        depth = 1;
        run = 0;
        playing = false;
    }
    void deepen() {
        depth = std::min(depth + 1, 16);
        run = 0;
    }
    bool next_is_here() const { return static_cast<std::uint32_t>(held.begin()->first) == last + 1; }
    bool due() const { return !held.empty() && (next_is_here() || static_cast<int>(held.size()) >= depth); }
    static long long rounded_ms(long long ns) { return ns < 0 ? 0 : (ns + ms / 2) / ms; }

    jitter_buffer::arrival put(std::uint32_t number, bool marker, jitter_buffer::packet entry) {
        if (marker)
            start_over();
        entry.first = marker || (!playing && number != 0);
        if (!playing && number != 0) {
            last = number - 1;
            playing = true;
        }
        if (number <= last) {
            deepen();
            return {.late = true};
        }
        auto const key = static_cast<std::int32_t>(number);
        bool const known = held.count(key) > 0;
        bool const outgrown =
            !held.empty() &&
            (held.size() > 400 || rounded_ms(entry.received.diff_ticks(held.begin()->second.received)) > 3000);
        if (outgrown)
            start_over();
        if (!known) {
            held[key] = entry;
            playing = true;
        }
        return {.thrown_away = outgrown};
    }
    jitter_buffer::departure take() {
        bool const next = next_is_here();
        jitter_buffer::departure const taken{held.begin()->second, static_cast<int>(held.size())};
        last = static_cast<std::uint32_t>(held.begin()->first);
        held.erase(held.begin());
        if (!next) {
            deepen();
        } else if (++run == 128) {
            run = 0;
            depth = std::max(depth - 1, 1);
        }
        return taken;
    }
};

TEST(jitter_buffer, agrees_with_the_model_on_a_bad_network) {
    seed_range{1, 60}.roll([&](dice& random) {
        jitter_buffer tested;
        buffer_model model;
        std::uint32_t const starts[] = {0, 1, 40000, 0xFFFF, 0x7FFFFF00, 0xFFFFFF00, random.word()};
        std::uint32_t next = starts[random.below(7)];
        long long now = 5000 * ms;
        int const loss = random.below(3) * random.below(12), disorder = random.below(3) * random.below(30);
        bool const wild = random.chance(30), stalls = random.chance(50);
        for (int name = 0; name < 4000; name++) {
            now += 20 * ms + (wild && random.chance(1) ? random.between(-300, 4000) * ms : 0);
            next += 1 + random.chance(loss);
            if (wild && random.chance(1))
                next += static_cast<std::uint32_t>(random.between(-600, 600));
            auto const number =
                next - (random.chance(disorder) ? static_cast<std::uint32_t>(random.between(1, 20)) : 0);
            bool const marker = random.below(1500) == 0;
            jitter_buffer::packet const packet{name, rtimestamp(now), false, str()};
            auto const got = tested.put(number, marker, packet), expected = model.put(number, marker, packet);
            ASSERT_TRUE(got.late == expected.late && got.thrown_away == expected.thrown_away) << name;
            if (random.below(1000) == 0) {
                tested.stop();
                model.held.clear();
                model.playing = false;
            }
            int asked = stalls && name / 900 % 2 ? 0 : random.chance(3) ? 2 : 1;
            for (; asked > 0; asked--) {
                ASSERT_EQ(tested.due(), model.due()) << name;
                if (!model.due())
                    continue;
                auto const got_out = tested.take(), wanted = model.take();
                ASSERT_TRUE(got_out.played.codec == wanted.played.codec && got_out.held == wanted.held &&
                            got_out.played.first == wanted.played.first)
                    << name;
            }
            ASSERT_TRUE(tested.get_last_played() == model.last && tested.is_playing() == model.playing) << name;
        }
    });
}

}  // namespace
