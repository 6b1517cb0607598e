#include "tests/sim/driver.h"

#include <cstdio>
#include <ctime>

#include "lib/tlv.h"

namespace sim {

namespace {

constexpr std::int64_t minute = 60 * second, hour = 60 * minute, day = 24 * hour;

}  // namespace

void driver::act() {
    static constexpr struct {
        int weight;
        void (driver::*act)(int leg);
    } actions[] = {{12, &driver::open_a_call},
                   {10, &driver::change_codec},
                   {6, &driver::rekey},
                   {6, &driver::move_far},
                   {8, &driver::hold},
                   {10, &driver::dial},
                   {12, &driver::disturb},
                   {3, &driver::fail_something},
                   {3, &driver::step_the_clock},
                   {3, &driver::set_log_level},
                   {3, &driver::use_other_devices},
                   {3, &driver::hang_up_a_line},
                   {4, &driver::close_leg},
                   {5, &driver::far_end_dials},
                   {4, &driver::break_stream}};
    int const index = some_leg();
    if (index < 0)
        return open_a_call(index);
    int left = 0;
    for (auto const& a : actions)
        left += a.weight;
    left = dice.below(left);
    for (auto const& a : actions)
        if ((left -= a.weight) < 0)
            return (this->*a.act)(index);
}

/// Some minutes of calls, then quiet for minutes, hours or days.
void driver::episode() {
    for (int actions = dice.between(4, 30); actions > 0; actions--) {
        act();
        run(dice.chance(10) ? dice.between(60, 1500) * second : dice.between(300, 9000) * ms);
        check_audio();
    }
    for (int i = 0; i < far_count; i++)
        close_leg(i);
    command(22, cmd_get_tlv_short(27, 0));
    run(3 * second);
    check_idle();
    int const quiet = dice.below(100);
    run(quiet < 50   ? dice.between(1, 60) * minute
        : quiet < 92 ? dice.between(1, 10) * hour
                     : dice.between(1, 6) * day);
    check_idle();
}

driver::driver(std::uint64_t seed, bool verbose_) : exchange(verbose_), dice(seed * 7919 + 3) {
    // Around the present, the ends of signed 32-bit seconds and of NTP's first era, and beyond both.
    static constexpr std::int64_t days_s[] = {1700000000, 2147483648 - 7200, 2085978496 - 7200, 4000000000};
    chosen.seed = seed;
    if (seed % 3 == 0)  // the 32-bit clock wraps within ten minutes
        chosen.clock_start = 0xFFFFFFFF - static_cast<std::uint32_t>(dice.below(60000));
    chosen.time_of_day_s = days_s[sizeof(std::time_t) > 4 ? dice.below(4) : 0];
    chosen.line_ppm = dice.between(-100, 100);
}

void driver::live(double days) {
    world simulated(*this, chosen);
    w = &simulated;
    run(300 * us);
    used_at_start = world::pool_in_use();
    set_ntp_offset();
    while (w->now() < static_cast<std::int64_t>(days * day))
        episode();
    std::printf("seed %llu: %.2f days, ", static_cast<unsigned long long>(chosen.seed),
                static_cast<double>(w->now()) / day);
    print_figures();
    w = nullptr;
}

}  // namespace sim
