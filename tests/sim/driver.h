#pragma once

#include <algorithm>

#include "tests/sim/exchange.h"

namespace sim {

/// Opens and ends calls, changes what can be changed, loses, doubles, reorders and delays packets, lets system calls
/// fail and steps the clocks; the exchange checks. Every decision follows from the seed.
class driver final : public exchange {
public:
    driver(std::uint64_t seed, bool verbose_);
    /// Starts the process and lets it live so many simulated days, then prints what there was.
    void live(double days);
    /// While it lives.
    world const* living() const { return w; }

private:
    void episode();
    void act();

    // What can happen, to a leg or to no matter which.
    void open_a_call(int);
    void change_codec(int index);
    void rekey(int index);
    void move_far(int index);
    void hold(int index);
    void dial(int index);
    void disturb(int index);
    void far_end_dials(int index);
    void break_stream(int index);
    void close_leg(int index);
    void fail_something(int);
    void hang_up_a_line(int);
    void step_the_clock(int);
    void set_log_level(int);
    void use_other_devices(int);

    void open_far_call(int line);
    void open_local_call();
    int open_leg(int line);
    void configure(int index, bool with_codec, bool with_destination, bool with_keys);
    void begin_far(int index, std::uint32_t process_sequence);
    void set_ntp_offset();
    protection random_keys();
    int some_leg() {
        int const first = dice.below(far_count);
        for (int i = 0; i < far_count; i++)
            if (legs[(first + i) % far_count].open)
                return (first + i) % far_count;
        return -1;
    }
    int legs_on(int line) const {
        return static_cast<int>(std::count_if(std::begin(legs), std::end(legs),
                                              [&](leg const& l) { return l.open && l.line == line; }));
    }

    random_source dice;
    settings chosen;
};

}  // namespace sim
