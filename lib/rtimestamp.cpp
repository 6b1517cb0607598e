#include "lib/rtimestamp.h"

#include <sys/times.h>

namespace {

constexpr long long ticks_per_ms = 1000000;
constexpr long long ticks_per_s = 1000000000;
constexpr long long ticks_per_raw_unit = 10000000;  // the raw clock counts hundredths of a second
constexpr long long ticks_per_sample = 125000;      // 8 kHz

std::uint32_t process_times_clock() {
    tms unused;
    return static_cast<std::uint32_t>(times(&unused));
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
    return ms * ticks_per_ms;
}

long long rtimestamp::s2ticks(int s) {
    return s * ticks_per_s;
}

int rtimestamp::ticks2ms(long long const& span) {
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
