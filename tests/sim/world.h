#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "tests/sim/endpoint.h"

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
///     w.command(cmd_get_tlv_str(16, cmd_get_tlv_short(4, 0)));  // open call 0
///     w.run_ms(1000);                                           // a simulated second
///
/// What the world asks and reports goes through `surroundings`, what is done to it are functions of `world`. There is
/// one world at a time; its end resets the process to the state just after its start, so that the next run in the
/// same program is the same for the same input (the block pool keeps its free blocks).
namespace sim {

constexpr int line_count = 4, signal_device = line_count;
constexpr int block_samples = 80;                                     ///< 10 ms
constexpr std::int64_t us = 1000, ms = 1000000, second = 1000000000;  ///< in ns

/// The device's own addresses: what it sends carries them, what is sent to them reaches its sockets. 127.0.0.1 is the
/// device too.
constexpr endpoint device_v4 = v4(192, 0, 2, 1, 0);
constexpr endpoint device_v6 = v6(1, 0);
constexpr endpoint control_port = v4(127, 0, 0, 1, 1300);  ///< the process's socket for commands
constexpr endpoint call_control = v4(127, 0, 0, 1, 1299);  ///< where commands come from

/// What a network path does to a datagram.
struct path {
    int delay_us = 100;
    int jitter_us = 0;  ///< 0..jitter_us more, for each datagram by itself: above the packet time it reorders
    int loss_permille = 0;
    int duplicate_permille = 0;
};

/// The system calls that can be told to fail.
enum class call { socket, bind, connect, send, receive, open, read, write, ioctl, schedule, count };

/// Everything around the process. Functions are called while a system call of the process or run() is under way: they
/// may use the world (what they send arrives later), but must not run it.
struct surroundings {
    virtual ~surroundings() = default;
    /// A datagram to call control (any address that sent the last session command).
    virtual void report(std::string_view) {}
    /// 10 ms of an open line device passed: what the telephone heard (80 samples; null: the process had written
    /// nothing), and what it said (preset to silence).
    virtual void line(int, std::int16_t const* /*heard*/, std::int16_t* /*said*/) {}
    /// A request (ioctl) to a line device; its result, or -errno. 0x20003005 empties the queue to the telephone too.
    virtual int request(int /*line*/, unsigned /*number*/) { return 0; }
    /// The process sends a datagram to the network, before anything happens to it.
    virtual void sent(endpoint const& /*from*/, endpoint const& /*to*/, std::string_view) {}
    /// The path that a datagram takes, either way.
    virtual path route(endpoint const& /*from*/, endpoint const& /*to*/) { return {}; }
    /// A datagram arrived at an address that is not the device's.
    virtual void arrived(endpoint const& /*from*/, endpoint const& /*to*/, std::string_view) {}
    /// The process connects a stream; false refuses. Streams are numbered from 1.
    virtual bool connecting(int /*stream*/, endpoint const& /*to*/) { return true; }
    /// The process wrote to a stream (at once, in order; it arrives after the path's delay).
    virtual void stream_data(int /*stream*/, std::string_view) {}
    /// The process closed a stream.
    virtual void stream_closed(int /*stream*/) {}
    /// The process wrote to the signalling device.
    virtual void signal(std::string_view) {}
    /// The time that at() asked for has come.
    virtual void wake(int /*token*/) {}
};

struct settings {
    std::uint64_t seed = 1;                   ///< of the process's random numbers and of the network's
    std::uint32_t clock_start = 30000;        ///< reading of the process-times clock, hundredths of a second
    std::int64_t time_of_day_s = 1700000000;  ///< at the start, seconds since 1970
    int line_ppm = 0;                         ///< the lines' clock against the system's
    bool use_ipv4 = true, use_ipv6 = true;
};

class kernel;

class world {
public:
    /// Starts the process as its main() does (with pipe and signalling device).
    world(surroundings& around, settings const& chosen);
    ~world();
    world(world const&) = delete;
    world& operator=(world const&) = delete;

    // ---- time
    /// Passes of the main loop until this much time has gone by.
    void run(std::int64_t ns);
    void run_ms(int ms_) { run(ms_ * ms); }
    /// ns since the start.
    std::int64_t now() const;
    /// surroundings::wake(token) at this time, or at once when it has passed.
    void at(std::int64_t ns, int token);
    /// The time of day, which nothing else changes but the passing of time; ns since 1970.
    std::int64_t time_of_day() const;
    void set_time_of_day(std::int64_t ns);

    // ---- call control
    /// One datagram from call_control to the control port; it has arrived when this returns.
    void command(str const& datagram);
    void command(std::string_view datagram);
    /// CMD_END for all calls, carried out before this returns (run a pass yourself before asking idle()).
    void end_all_calls();

    // ---- network
    /// Takes the path from `from` to `to`.
    void send(endpoint const& from, endpoint const& to, std::string_view datagram);
    /// Arrives for sure, after delay_ns.
    void deliver(endpoint const& from, endpoint const& to, std::string_view datagram,
                 std::int64_t delay_ns = 0);
    /// Data for the process in one piece; end of the stream; the process's writes are taken (default) or not.
    void stream_send(int stream, std::string_view data, std::int64_t delay_ns = 0);
    void stream_close(int stream);
    void stream_stall(int stream, bool stalled);

    // ---- devices
    /// Blocks of silence or what surroundings::line() says come every 10 ms; this comes in front of them, at once.
    void say(int line, std::int16_t const* samples, int count);
    /// A line or signal_device: readable, but reads give 0 bytes and nothing is heard, until it is undone.
    void hang_up(int device, bool hung_up = true);
    void driver_text(std::string_view text);
    void signal_bytes(std::string_view bytes);

    // ---- faults
    /// The next `times` calls of this kind fail with the error, before they do anything.
    void fail(call which, int error, int times = 1);

    // ---- what can be asked any time
    /// The first thing that the process did and must not do: a call that would block for ever, a closed descriptor
    /// used or closed, a dead device asked again at once, a loop that doesn't let time pass. Null: none.
    char const* trouble() const;
    /// No simulated descriptor is open but control socket, pipe and signalling device, and the heartbeat is the only
    /// timeout.
    bool idle() const;
    /// Bytes of the product's block pool that are in use.
    static std::uint64_t pool_in_use();

    random_source& random();

private:
    std::unique_ptr<kernel> system;
};

}  // namespace sim
