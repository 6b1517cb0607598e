#include "lib/rtimestamp.h"

#include <cerrno>

#include <sys/syscall.h>
#include <sys/times.h>
#include <unistd.h>

namespace {

constexpr int ticks_per_ms = 1000000;
constexpr long long ticks_per_s = 1000000000;
constexpr long long ticks_per_raw_unit = 10000000;  // the raw clock counts hundredths of a second
constexpr long long ticks_per_sample = 125000;      // 8 kHz

/// The clock alone: the structure that times() fills costs the kernel more than the rest of the call.
std::uint32_t process_times_clock() {
#ifdef SYS_times
    // The kernel itself is asked: a C library may take the last 4095 readings before the counter wraps for errors, as
    // syscall() does on most machines, and then the clock would stop for 41 s.
    errno = 0;
    long const reading = syscall(SYS_times, nullptr);
    return static_cast<std::uint32_t>(reading == -1 && errno != 0 ? -errno : reading);
#else
    return static_cast<std::uint32_t>(times(nullptr));
#endif
}

constinit std::uint32_t previous_reading = 0;
constinit std::uint32_t wraps = 0;

}  // namespace

std::uint32_t (*rtimestamp::raw_clock)() = process_times_clock;
long long rtimestamp::ticks10 = 0;
constinit rtimestamp system_start;

rtimestamp rtimestamp::now() {
    std::uint32_t const reading = raw_clock();
    if (reading < previous_reading)
        wraps++;
    previous_reading = reading;
    return rtimestamp(((static_cast<long long>(wraps) << 32) + reading) * ticks_per_raw_unit);
}

int rtimestamp::get_milliseconds() const {
    return static_cast<int>(ticks % ticks_per_s / ticks_per_ms);
}

long long rtimestamp::get_seconds() const {
    return ticks / ticks_per_s;
}

std::uint32_t rtimestamp::get_rtp_timestamp() const {
    return static_cast<std::uint32_t>(ticks / ticks_per_sample);
}

long long rtimestamp::ms2ticks(int ms) {
    return static_cast<long long>(ms) * ticks_per_ms;
}

long long rtimestamp::s2ticks(int s) {
    return s * ticks_per_s;
}

int rtimestamp::ticks2ms(long long const& span) {
    // Up to 4 s with a division of 32 bits: one of 64 bits takes a 32-bit machine a hundred instructions.
    if (span >= 0 && span < 4 * ticks_per_s)
        return static_cast<int>((static_cast<std::uint32_t>(span) + ticks_per_ms / 2u) / std::uint32_t{ticks_per_ms});
    return static_cast<int>((span + ticks_per_ms / 2) / ticks_per_ms);
}

int rtimestamp::ticks2s(long long const& span) {
    return static_cast<int>((span + ticks_per_s / 2) / ticks_per_s);
}

void init_timestamps() {
    previous_reading = wraps = 0;
    rtimestamp::ticks10 = rtimestamp::ms2ticks(10);
    system_start = rtimestamp::now();
}
