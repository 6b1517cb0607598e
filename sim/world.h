#pragma once

#include "sim/kernel.h"

class str;

/// The whole media process, from its start-up to its main loop, in a simulated world: its sockets, devices, pipes and
/// clocks are played by this library, nothing waits and nothing depends on anything but the seed.
///
/// How: a program that links `fxs_sim` is linked with --wrap for the system calls that the process makes. While a
/// `world` lives they are answered by it, otherwise by the system. Simulated descriptors start at 100 (lowest free
/// first, as a kernel gives them); any other descriptor and path goes to the system, so a test may use files.
///
///     struct my_surroundings : sim::surroundings {
///         void line(int, std::int16_t const*, std::int16_t* said) override { said[0] = 1000; }
///     } around;
///     sim::world w(around, {.seed = 1});
///     w.command(cmd_get_tlv_str(cmd_open::tag, cmd_get_tlv_short(cmd_open::call, 0)));
///     w.run_ms(1000);  // a simulated second
///
/// What the world asks and reports goes through `surroundings`, what is done to it are functions of `world`. There is
/// one world at a time; its end resets the process to the state just after its start, so that the next run in the
/// same program is the same for the same input (the block pool keeps its free blocks).
namespace sim {

class world : public kernel {
public:
    /// Starts the process as its main() does (with pipe and signalling device).
    explicit world(surroundings& outer, settings const& chosen = {});
    ~world();

    /// Passes of the main loop until this much time has gone by.
    void run(std::int64_t ns);
    void run_ms(int time_ms) { run(time_ms * ms); }
    /// One datagram from call_control to the control port; it has arrived when this returns.
    void command(str const& data);
    void command(std::string_view data) { deliver(call_control, control_port, data); }
    /// CMD_END for all calls, carried out before this returns (run a pass yourself before asking idle()).
    void end_all_calls();
    /// No simulated descriptor is open but control socket, pipe and signalling device, and the heartbeat is the only
    /// timeout.
    bool idle() const;
    /// Bytes of the product's block pool that are in use.
    static std::uint64_t pool_in_use();
};

}  // namespace sim
