#pragma once

#include <cstdint>

/// What a report block says of one received stream, counted as RFC 3550 appendix A has it: extended sequence number
/// (A.1, without probation), losses (A.3), interarrival jitter (A.8). Knows no packets; times are RTP timestamps and
/// arrivals in 8 kHz units and wrap. A reception owns one for the stream that it follows.
class source_statistics {
public:
    /// An accepted packet, late ones and copies included.
    void add(std::uint16_t sequence, std::uint32_t rtp_timestamp, std::uint32_t arrival);

    bool empty() const { return !any; }
    /// Cycles in the high 16 bits, counted from the first packet; 0 before it.
    std::uint32_t get_highest() const { return cycles + highest; }
    /// Packets that the numbers say were sent, and those that came. More may come than were expected.
    std::uint32_t get_expected() const { return any ? get_highest() - first + 1 : 0; }
    std::uint32_t get_received() const { return received; }
    /// Expected less received, -2^23 to 2^23 - 1.
    int get_lost() const;
    /// RTP timestamp units.
    std::uint32_t get_jitter() const { return jitter_q4 >> 4; }

private:
    void begin(std::uint16_t sequence);
    void time(std::uint32_t rtp_timestamp, std::uint32_t arrival);

    bool any = false;
    std::uint16_t highest = 0;
    std::uint32_t first = 0;
    std::uint32_t cycles = 0;
    std::uint32_t received = 0;
    std::uint32_t restart_at = 1u << 16;  ///< number that shows that the sender began anew; beyond 16 bits: none
    std::uint32_t last_transit = 0;
    std::uint32_t jitter_q4 = 0;
};

/// The share of a stream's packets that were lost since it was asked for last (RFC 3550 appendix A.3).
class loss_interval {
public:
    /// In 1/256; 0 when more came than were expected, and for another stream's first time.
    unsigned char take(source_statistics const& source);
    /// Another stream begins.
    void clear() { *this = loss_interval(); }

private:
    std::uint32_t expected = 0;
    std::uint32_t received = 0;
};
