#include "lib/timeout.h"

#include <map>
#include <memory>

#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"
#include "tests/support/seed.h"

namespace {

constexpr long long ms = 1000000, s = 1000000000;

TEST(rtimestamp, spans_round_half_up_and_negative_ones_move_toward_zero) {
    constexpr long long table[][2] = {// ns, ms
                                      {499999, 0},   {500000, 1},   {1499999, 1},  {1500000, 2},
                                      {-1, 0},       {-1 * ms, 0},  {-1499999, 0}, {-1500000, -1},
                                      {-2 * ms, -1}, {-3 * ms, -2}, {10 * ms, 10}, {3000 * ms + 499999, 3000}};
    for (auto const& [span, in_ms] : table) {
        EXPECT_EQ(rtimestamp::ticks2ms(span), in_ms) << span;
        EXPECT_EQ(rtimestamp::ticks2s(span * 1000), in_ms) << span * 1000;
        EXPECT_EQ(rtimestamp(5 * s + span).diff_ms(rtimestamp(5 * s)), in_ms) << span;
    }
    EXPECT_EQ(rtimestamp::ms2ticks(2147483647), 2147483647000000);
    EXPECT_EQ(rtimestamp::s2ticks(-2147483647), -2147483647000000000);
}

TEST(rtimestamp, parts_of_a_time) {
    constexpr long long wrap = (1LL << 32) * 125000, later = 1700000000;
    constexpr long long table[][4] = {// ns; ms of the second, seconds, samples
                                      {124999, 0, 0, 0},
                                      {125000, 0, 0, 1},
                                      {999999999, 999, 0, 7999},
                                      {later * s + 7 * ms + 999999, 7, later, (later * 8000 + 63) & 0xFFFFFFFF},
                                      {wrap - 1, 911, 536870, 0xFFFFFFFF},
                                      {wrap + 5 * 125000, 912, 536870, 5}};
    for (auto const& [ticks, milliseconds, seconds, samples] : table) {
        EXPECT_EQ(rtimestamp(ticks).get_milliseconds(), milliseconds) << ticks;
        EXPECT_EQ(rtimestamp(ticks).get_seconds(), seconds) << ticks;
        EXPECT_EQ(rtimestamp(ticks).get_rtp_timestamp(), samples) << ticks;
    }
}

TEST(rtimestamp, now_counts_hundredths_and_goes_on_across_wraps_of_the_raw_clock) {
    manual_clock clock(0xFFFFFFF0);
    rtimestamp const start = rtimestamp::now();
    long long expected = 0;
    for (std::uint32_t const step : {0u, 15u, 1u, 1u, ~0u / 2, 0x80000000u, ~0u, 0u, 2u, 0xF0000000u}) {
        clock.advance(step);
        expected += step;
        EXPECT_EQ(rtimestamp::now().diff_ticks(start), expected * 10 * ms) << step;
    }
}

std::string calls;
std::unique_ptr<timeout> subject;

timeout_queue& queue = timeout_queue::global_queue;

void note(int n) {
    calls += std::to_string(n) + ";";
}

struct timeouts : testing::Test {
    ~timeouts() override {
        EXPECT_TRUE(queue.empty());
        EXPECT_EQ(callback_objects, objects_before) << "callback objects leaked";
    }
    static std::string take_calls() { return std::exchange(calls, {}); }

    manual_clock clock{0xFFFFFF00};
    int objects_before = callback_objects;
};

TEST_F(timeouts, carry_every_kind_of_arguments) {
    str const a("a"), b("b"), c("c");
    callback_argument const table[] = {
        callback_argument(),
        callback_argument([] { note(0); }),
        {[](str const& x) { calls += to_string(x) + ";"; }, a},
        {note, 7},
        {[](str const& x, str const& y) { calls += to_string(x + y) + ";"; }, a, b},
        {[](str const& x, int n) { calls += to_string(x), note(n); }, a, 8},
        {[](str const& x, str const& y, str const& z) { calls += to_string(x + y + z); }, a, b, c},
    };
    for (callback_argument const& action : table) {
        callback_argument copy;
        copy = action;
        copy.call();
    }
    EXPECT_EQ(take_calls(), "0;a;7;ab;a8;abc");
}

TEST_F(timeouts, an_action_may_reschedule_or_destroy_its_own_timeout) {
    static constexpr auto destroy = +[](str const& text) { subject.reset(), calls += to_string(text); };
    auto const reschedule =
        +[](str const& text) { subject->callback(rtimestamp::ms2ticks(30), callback_argument(destroy, text)); };
    subject = std::make_unique<timeout>();
    subject->callback(0, callback_argument(reschedule, str("its own string")));
    queue.next();
    EXPECT_EQ(queue.delay(true), 30);
    queue.next();
    EXPECT_EQ(take_calls(), "its own string");
}

/// Against an ordered multimap, in which equal keys keep the order of insertion too.
TEST_F(timeouts, random_operations_agree_with_an_ordered_map) {
    constexpr std::size_t slots = 24;
    seed_range{1, 20}.roll([&](dice& random) {
        std::unique_ptr<timeout> all[slots];
        std::multimap<long long, std::pair<std::size_t, int>> pending;  // due time: slot, number of its action
        auto const now = [] { return rtimestamp::now().diff_ticks(rtimestamp()); };
        auto const forget = [&](std::size_t i) {
            std::erase_if(pending, [i](auto const& entry) { return entry.second.first == i; });
        };
        for (int number = 0; number < 2000 && !HasFailure(); number++) {
            std::size_t const i = random.word() % slots, other = random.word() % slots;
            int const what = random.below(16);
            if (what < 6) {
                all[i] = all[i] ? std::move(all[i]) : std::make_unique<timeout>();
                forget(i);
                long long const delay = 10000000LL * random.between(-3, 20);
                pending.emplace(now() + std::max(delay, 0LL), std::pair(i, number));
                all[i]->callback(delay, callback_argument(note, number));
            } else if (what < 8) {
                forget(i);
                what == 6 || !all[i] ? all[i].reset() : all[i]->clear();
            } else if (what < 10) {
                clock.advance(static_cast<unsigned>(random.below(8)));
            } else if (what < 12) {
                if (i == other || !all[i])
                    continue;
                forget(other);
                all[other] = std::make_unique<timeout>(*all[i]);
                for (auto const& [due, who] : std::multimap(pending))
                    if (who.first == i)
                        pending.emplace(due, std::pair(other, who.second));
            } else {
                queue.next();
                std::string const fired = pending.empty() ? "" : std::to_string(pending.begin()->second.second) + ";";
                pending.empty() ? pending.end() : pending.erase(pending.begin());
                ASSERT_EQ(take_calls(), fired);
            }
            ASSERT_EQ(queue.size(), static_cast<int>(pending.size()));
            long long const delay = pending.empty() ? 0 : pending.begin()->first - now();
            ASSERT_EQ(queue.delay(true), pending.empty() ? -1 : std::max(delay, 0LL) / 1000000);
        }
    });
}

}  // namespace
