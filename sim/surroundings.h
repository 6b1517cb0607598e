#pragma once

#include <cstdint>
#include <string_view>

#include "sim/endpoint.h"

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

}  // namespace sim
