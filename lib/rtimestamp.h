#pragma once

#include <cstdint>

/// A point in time or a span: one signed 64-bit count of nanoseconds ("ticks").
///
/// now() is derived from the process-times clock, which counts hundredths of a second in 32 bits; wraps of
/// that counter (every 497 days) are absorbed. It is monotonic, has no relation to the time of day, and does
/// not advance finer than 10 ms, so that all calls within one pass of the main loop usually agree.
class rtimestamp {
public:
    constexpr rtimestamp() : ticks(0) {}
    constexpr rtimestamp(long long const& nanoseconds) : ticks(nanoseconds) {}

    /// Current time of the process clock.
    static rtimestamp now();

    /// Source of the raw 32-bit reading, in hundredths of a second. Points at the system's times(); tests put
    /// a clock of their own here.
    static std::uint32_t (*raw_clock)();

    /// The clock's resolution in ticks: ms2ticks(10) once init_timestamps() has run, 0 before.
    static long long ticks10;

    void clear() { ticks = 0; }
    rtimestamp& operator+=(long long const& nanoseconds) {
        ticks += nanoseconds;
        return *this;
    }
    bool operator==(rtimestamp const& other) const { return ticks == other.ticks; }
    bool operator<(rtimestamp const& other) const { return ticks < other.ticks; }

    /// This minus other, in ticks, rounded ms, rounded s (see ticks2ms, ticks2s).
    long long diff_ticks(rtimestamp const& other) const { return ticks - other.ticks; }
    int diff_ms(rtimestamp const& other) const { return ticks2ms(diff_ticks(other)); }
    int diff_s(rtimestamp const& other) const { return ticks2s(diff_ticks(other)); }

    /// The millisecond within the current second, 0..999, truncated.
    int get_milliseconds() const;
    /// Whole seconds, truncated.
    long long get_seconds() const;
    /// The same instant on an 8 kHz sample clock (1 unit = 125 us), truncated to 32 bits.
    std::uint32_t get_rtp_timestamp() const;

    static long long ms2ticks(int ms);
    static long long s2ticks(int s);
    /// Rounds half up for spans >= 0; negative spans move toward zero (-1 ms gives 0, -2 ms gives -1).
    static int ticks2ms(long long const& span);
    static int ticks2s(long long const& span);

private:
    long long ticks;
};

/// When the process started, on the process clock; 0 before init_timestamps().
extern rtimestamp system_start;

/// Sets rtimestamp::ticks10 and system_start; the raw clock's wraps count from here. Called before the first timeout
/// is scheduled.
void init_timestamps();
