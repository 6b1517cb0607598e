#pragma once

#include <cstdint>

/// The packets that arrived since the last extended report, by extended sequence number: a window of 512 numbers that
/// begins 16 before the first packet of the period. Times are RTP timestamps and arrival times in 8 kHz units; both
/// wrap, and so do sequence numbers. Knows no reports.
class xr_events {
public:
    /// What is known of one sequence number.
    struct packet_event {
        std::uint32_t timestamp = 0;  ///< RTP timestamp of the first copy
        std::uint32_t time = 0;       ///< arrival of the first copy
        int count = 0;                ///< copies received

        void add(std::uint32_t rtp_timestamp, std::uint32_t arrival);
    };
    /// Differences of transit time between neighbouring sequence numbers (RFC 3550 section 6.4.1), without sign.
    struct transit_differences {
        int count = 0;
        int min = 0x7FFFFFFF;
        int max = 0;
        int sum = 0;  ///< wraps
        long long square_sum = 0;
        int jitter = 0;  ///< interarrival jitter, RTP timestamp units
    };
    /// Sequence numbers of the period, as far as the first 511 of the window show them.
    struct sequence_summary {
        int lowest = 0x7FFFFFFF;
        int highest = 0;
        std::uint32_t lost = 0;
        std::uint32_t duplicates = 0;
    };

    /// A packet arrived. False, and nothing kept: it lies outside the window.
    bool add(int sequence, std::uint32_t rtp_timestamp, std::uint32_t arrival);
    /// The next period begins.
    void clear();

    bool empty() const { return count == 0; }
    /// Sequence number of the first packet of the window; the window must not be empty.
    int get_first() const;
    transit_differences get_transit_differences() const;
    sequence_summary get_sequences() const;

    /// Calls act(sequence number, packet_event const&) for each packet in ascending order.
    template <typename action>
    void for_each(action const& act) const {
        int remaining = count;
        for (int i = 0; i < window && remaining > 0; i++) {
            if (events[i].count == 0)
                continue;
            remaining--;
            act(sequence_at(i), events[i]);
        }
    }

private:
    static constexpr int window = 512;
    static constexpr int before_first = 16;  // room for packets that overtook the first one

    int sequence_at(int i) const {
        return static_cast<int>(static_cast<std::uint32_t>(base) + static_cast<std::uint32_t>(i));
    }

    packet_event events[window];
    int count = 0;  ///< numbers of which a packet arrived
    int base = 0;   ///< sequence number of events[0]
};
