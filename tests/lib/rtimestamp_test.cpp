#include "lib/rtimestamp.h"

#include <gtest/gtest.h>

#include "tests/support/manual_clock.h"

namespace {

constexpr long long ms = 1000000, s = 1000000000;

TEST(rtimestamp, spans_round_half_up_and_negative_ones_move_toward_zero) {
    constexpr long long table[][2] = {// ns, ms
                                      {499999, 0},   {500000, 1},    {1499999, 1},
                                      {1500000, 2},  {-1, 0},        {-1 * ms, 0},
                                      {-1499999, 0}, {-1500000, -1}, {-2 * ms, -1},
                                      {-3 * ms, -2}, {10 * ms, 10},  {3000 * ms + 499999, 3000}};
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
    constexpr long long table[][4] = {
        // ns; ms of the second, seconds, samples
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
    EXPECT_EQ(start.diff_ticks(rtimestamp()) % (10 * ms), 0);
    EXPECT_TRUE(rtimestamp::now() == start) << "an unchanged reading is no wrap";
    long long expected = 0;
    for (std::uint32_t const step : {15u, 1u, 1u, ~0u / 2, 0x80000000u, ~0u, 0u, 2u, 0xF0000000u}) {
        clock.advance(step);
        expected += step;
        EXPECT_EQ(rtimestamp::now().diff_ticks(start), expected * 10 * ms) << step;
    }
}

}  // namespace
