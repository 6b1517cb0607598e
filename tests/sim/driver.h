#pragma once

#include "lib/protocol.h"
#include "tests/sim/exchange.h"

namespace sim {

/// Opens and ends calls, changes what can be changed, loses, doubles, reorders and delays packets, lets system calls
/// fail and steps the clocks; the exchange checks. Every decision is the decider's. With `anything` it also does what
/// no call control and no far end does; what the exchange knows of calls is not checked after that.
class driver final : public exchange {
public:
    driver(decider& decisions, bool anything, bool talkative = false);
    /// Starts the process; what begins here is ended by finish().
    void begin();
    void finish();
    /// Does something, lets time pass (below 10 s without an action's own) and checks.
    void step(std::int64_t pause);
    /// Between begin() and finish(): some minutes of calls, then quiet for minutes, hours or days.
    void episode();
    using exchange::print_figures;
    /// ns since begin().
    std::int64_t now() const { return w->now(); }

private:
    struct action {
        int weight;
        void (driver::*act)(int leg);
    };
    static action const usual[], unusual[];

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
    void hang_up_a_device(int);
    void step_the_clock(int);
    void set_log_level(int);
    void use_other_devices(int);

    // What should not (driver_unusual.cpp).
    void any_command(int);
    void any_rtp(int);
    void any_packet(int);
    void any_stream(int);
    void any_device(int);
    void any_failure(int);

    void open_far_call(int line);
    void open_local_call();
    int open_leg(int line);
    void configure(int index, bool with_codec, bool with_destination, bool with_keys);
    void begin_far(int index, std::uint32_t process_sequence);
    void set_ntp_offset();
    void put_on_line(int index, int line);
    /// With a tag of this length, or of any.
    protection random_keys(int tag_bytes = 0);
    str any_xr_mode();
    bytes random_bytes(int n);
    endpoint anywhere();
    str any_field(protocol::field_format const& field);
    /// From anywhere to any of the channels' ports.
    void to_channel(bool rtcp, str const& packet);
    int some_leg() {
        int const first = dice.below(far_count);
        for (int i = 0; i < far_count; i++)
            if (legs[(first + i) % far_count].open)
                return (first + i) % far_count;
        return -1;
    }
    int legs_on(int line) const {
        return static_cast<int>(
            std::count_if(std::begin(legs), std::end(legs), [&](leg const& l) { return l.open && l.line == line; }));
    }

    decider& dice;
    bool const unusual_too;
    settings chosen;
    int serial = 0;        ///< of far ends
    int any_sequence = 0;  ///< of any_rtp()
};

}  // namespace sim
