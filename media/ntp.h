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
    /// The instant as NTP time by the system's time of day, to the microsecond; ntp_timediff is not added.
    static ntp_time by_day(rtimestamp const& instant);
    /// Its middle 32 bits, 1/65536 s.
    std::uint32_t middle() const { return seconds << 16 | fraction >> 16; }

    constexpr ntp_time(std::uint32_t whole, std::uint32_t part) : seconds(whole), fraction(part) {}
};

/// A moment by the time of day, which is exact, and by the process clock, which nobody sets.
struct moment {
    ntp_time day{0, 0};
    rtimestamp process;

    static moment of(rtimestamp const& instant) { return {ntp_time::by_day(instant), instant}; }
    /// Time since an earlier moment, 1/65536 s: by the time of day unless that was set meanwhile.
    std::uint32_t since(moment const& earlier) const;
};
