#pragma once

#include <cstdint>

/// Classifies losses into bursts and gaps (RFC 3611 section 4.7.2 with Gmin 16) by looking 16 packets back: a loss is
/// counted when 16 more packets have been seen, by the state in force then. Fed in sequence order with one call per
/// packet; the state lives as long as the call. Times are arrival times in 8 kHz units; times and counters wrap.
class burst_tracker {
public:
    void clear() { *this = burst_tracker(); }

    void add_received(std::uint32_t time);
    /// n losses in a row. Any number costs at most some dozens of steps.
    void add_lost(std::uint32_t n = 1);

    /// Packets fed.
    int get_position() const { return static_cast<int>(position); }
    int get_lost() const { return static_cast<int>(lost); }
    int get_burst_lost() const { return static_cast<int>(burst_lost); }
    int get_gap_lost() const { return static_cast<int>(gap_lost); }
    /// Finished bursts.
    int get_bursts() const { return bursts; }
    /// Bursts including the one in progress, and their total length in ms up to the latest packet.
    int burst_number() const { return bursts + in_burst; }
    int burst_total_ms() const;
    /// The rest of the time between the first and the latest packet, in ms.
    int gap_total_ms() const;

private:
    void shift(bool received, std::uint32_t time);
    void process_burst();

    static constexpr int recent_count = 18;

    bool in_burst = false;
    std::uint32_t history = 0xFFFFFFFF;             ///< a bit per packet, newest in bit 0: 1 received, 0 lost
    std::uint32_t recent_times[recent_count] = {};  ///< oldest first; 0 for a lost packet
    std::uint32_t position = 0;                     ///< packets fed, received and lost
    std::uint32_t lost = 0;                         ///< classified losses
    std::uint32_t burst_lost = 0;
    std::uint32_t gap_lost = 0;
    std::uint32_t burst_begin = 0;        ///< where the burst began, or where the last one ended
    std::uint32_t burst_duration_ms = 0;  ///< sum over finished bursts
    int bursts = 0;
    std::uint32_t first_time = 0;
    std::uint32_t last_time = 0;
};
