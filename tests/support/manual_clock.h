#pragma once

#include <cstdint>

#include "lib/rtimestamp.h"

/// The process clock in a test's hands: rtimestamp::now() follows it as long as it lives. There is one at a time.
/// A start below the last reading counts as a wrap of the clock: only differences of times mean anything.
class manual_clock {
public:
    explicit manual_clock(std::uint32_t start_hundredths = 0) : before(rtimestamp::raw_clock) {
        reading = start_hundredths;
        rtimestamp::raw_clock = [] { return reading; };
    }
    ~manual_clock() { rtimestamp::raw_clock = before; }
    manual_clock(manual_clock const&) = delete;
    manual_clock& operator=(manual_clock const&) = delete;

    /// Steps of 10 ms; wraps with the reading.
    void advance(std::uint32_t hundredths) { reading += hundredths; }
    void advance_ms(std::uint32_t ms) { advance(ms / 10); }

private:
    inline static std::uint32_t reading = 0;
    std::uint32_t (*before)();
};
