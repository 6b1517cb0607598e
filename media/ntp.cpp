#include "media/ntp.h"

#include <sys/time.h>

std::uint32_t ntp_timediff = 0;

namespace {

constexpr long long second_ns = 1000000000;
constexpr std::uint32_t fraction_of_a_millisecond = 4294967;  // 2^32 / 1000

}  // namespace

ntp_time::ntp_time(rtimestamp const& instant)
    : seconds(static_cast<std::uint32_t>(instant.get_seconds()) + ntp_unix_offset + ntp_timediff),
      fraction(static_cast<std::uint32_t>(instant.get_milliseconds()) * fraction_of_a_millisecond) {}

ntp_time ntp_time::by_day(rtimestamp const& instant) {
    timeval day{};
    gettimeofday(&day, nullptr);
    long long const age = rtimestamp::now().diff_ticks(instant);
    long long const ns = day.tv_sec * second_ns + day.tv_usec * 1000LL - age;
    auto const fraction = (static_cast<std::uint64_t>(ns % second_ns) << 32) / second_ns;
    return {static_cast<std::uint32_t>(ns / second_ns) + ntp_unix_offset, static_cast<std::uint32_t>(fraction)};
}

std::uint32_t moment::since(moment const& earlier) const {
    constexpr long long process_clock_error_ns = 20000000;  // it advances by 10 ms
    long long const by_process = process.diff_ticks(earlier.process);
    std::uint32_t const by_day = day.middle() - earlier.day.middle();
    long long const difference = static_cast<std::int32_t>(by_day) * second_ns / 65536 - by_process;
    bool const was_set = difference > process_clock_error_ns || difference < -process_clock_error_ns;
    auto const whole = static_cast<std::uint32_t>(by_process / second_ns);
    auto const part = static_cast<std::uint32_t>(by_process % second_ns * 65536 / second_ns);
    return was_set ? (whole << 16) + part : by_day;
}
