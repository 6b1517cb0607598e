#pragma once

#include <cstdint>
#include <string>
#include <vector>

constexpr int packet_ms = 20;

/// What a network and the sender's clock do to a call.
struct network {
    std::string name;
    int jitter_ms = 0;  ///< 0 to this much more delay, for each packet by itself: above the packet time it reorders
    int loss_permille = 0;
    int burst_packets = 1;               ///< mean length of a burst of losses (Gilbert)
    int sender_ppm = 0;                  ///< the sender's clock against the listener's
    int held_ms = 0, held_every_ms = 0;  ///< from 10 s on, packets of this time arrive at its end; every 0: once

    /// When a packet is complete, in microseconds of the listener's clock after the call began.
    std::int64_t complete_us(int number) const;
};

/// Those that are measured.
std::vector<network> networks();

/// Arrival of each packet, in microseconds after the call began; negative: lost. Follows from network and seed alone.
std::vector<std::int64_t> arrivals_us(network const& chosen, std::uint64_t seed, int packets);
