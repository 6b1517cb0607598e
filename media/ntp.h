#pragma once

#include <cstdint>

#include "lib/rtimestamp.h"

/// Seconds that call control adds to the process clock so that it shows the time of day; wraps modulo 2^32.
extern std::uint32_t ntp_timediff;

/// Seconds from 1900 to 1970 (RFC 5905 section 6): turns Unix time into NTP time.
constexpr std::uint32_t ntp_unix_offset = 2208988800u;

/// An NTP timestamp: seconds since 1900 and a binary fraction of a second.
struct ntp_time {
    std::uint32_t seconds;
    std::uint32_t fraction;  ///< 1/2^32 s; millisecond resolution

    /// The instant on the process clock as NTP time.
    explicit ntp_time(rtimestamp const& instant);
};
