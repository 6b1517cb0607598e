#include "media/ntp.h"

std::uint32_t ntp_timediff = 0;

namespace {

constexpr std::uint32_t fraction_of_a_millisecond = 4294967;  // 2^32 / 1000

}  // namespace

ntp_time::ntp_time(rtimestamp const& instant)
    : seconds(static_cast<std::uint32_t>(instant.get_seconds()) + ntp_unix_offset + ntp_timediff),
      fraction(static_cast<std::uint32_t>(instant.get_milliseconds()) * fraction_of_a_millisecond) {}
