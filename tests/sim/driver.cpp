#include "tests/sim/driver.h"

#include <cstdio>
#include <ctime>

#include "lib/protocol.h"
#include "lib/tlv.h"

namespace sim {

namespace {

constexpr std::int64_t minute = 60 * second, hour = 60 * minute, day = 24 * hour;

}  // namespace

driver::action const driver::usual[] = {{12, &driver::open_a_call},
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
                                        {3, &driver::hang_up_a_device},
                                        {4, &driver::close_leg},
                                        {5, &driver::far_end_dials},
                                        {4, &driver::break_stream}};

driver::action const driver::unusual[] = {{40, &driver::any_command}, {16, &driver::any_rtp},
                                          {12, &driver::any_packet},  {8, &driver::any_stream},
                                          {10, &driver::any_device},  {8, &driver::any_failure}};

driver::driver(decider& decisions, bool anything, bool talkative) : dice(decisions), unusual_too(anything) {
    // Around the present, the ends of signed 32-bit seconds and of NTP's first era, and beyond both.
    static constexpr std::int64_t days_s[] = {1700000000, 2147483648 - 7200, 2085978496 - 7200, 4000000000};
    verbose = talkative;
    chosen.seed = dice.word();
    if (dice.chance(333))  // the 32-bit clock wraps within ten minutes
        chosen.clock_start = 0xFFFFFFFF - static_cast<std::uint32_t>(dice.below(60000));
    chosen.time_of_day_s = days_s[sizeof(std::time_t) > 4 ? dice.below(4) : 0];
    chosen.line_ppm = dice.between(-100, 100);
    if (unusual_too && dice.chance(100)) {  // without one address family
        chosen.use_ipv6 = dice.chance(500);
        chosen.use_ipv4 = !chosen.use_ipv6;
        lawless = true;
    }
}

void driver::begin() {
    start(chosen);
    run(300 * us);
    used_at_start = world::pool_in_use();
    set_ntp_offset();
}

void driver::finish() {
    for (int i = 0; i < far_count; i++)
        close_leg(i);
    telephone_network::finish();
}

void driver::step(std::int64_t pause) {
    auto const pick = [&](auto const& actions, int& left) -> action const* {
        for (action const& a : actions)
            if ((left -= a.weight) < 0)
                return &a;
        return nullptr;
    };
    auto const weight = [](auto const& actions) {
        int sum = 0;
        for (action const& a : actions)
            sum += a.weight;
        return sum;
    };
    int const index = some_leg();
    int left = dice.below(weight(usual) + (unusual_too ? weight(unusual) : 0));
    if (action const* const a = pick(usual, left)) {
        index < 0 ? open_a_call(index) : (this->*a->act)(index);
    } else {
        lawless = true;
        (this->*pick(unusual, left)->act)(index);
    }
    run(pause);
    check_audio();
}

void driver::episode() {
    for (int steps = dice.between(4, 30); steps > 0; steps--)
        step(dice.chance(10) ? dice.between(60, 1500) * second : dice.between(300, 9000) * ms);
    for (int i = 0; i < far_count; i++)
        close_leg(i);
    command(protocol::cmd_led::tag, protocol::cmd_led::pattern, 0);
    run(3 * second);
    check_idle();
    int const quiet = dice.below(100);
    run(quiet < 50 ? dice.between(1, 60) * minute : quiet < 92 ? dice.between(1, 10) * hour : dice.between(1, 6) * day);
    check_idle();
}

}  // namespace sim
