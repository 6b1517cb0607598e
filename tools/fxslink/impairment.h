#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

/// What a bad network does to one direction of a link: decides packet by packet, from a seed, so that a run can be
/// repeated. It knows no sockets and reads no clock.
class impairment {
public:
    struct settings {
        double loss_percent = 0;
        double duplicate_percent = 0;
        int delay_ms = 0;   ///< of every packet
        int jitter_ms = 0;  ///< at most added to that; packets overtake each other
    };
    /// What has happened so far.
    struct counters {
        unsigned long packets = 0;  ///< offered to the link
        unsigned long lost = 0;
        unsigned long duplicated = 0;
    };

    impairment(settings const& wanted, std::uint32_t seed);

    /// The delays after which copies of the next packet arrive: none (lost), one or two.
    std::vector<std::chrono::milliseconds> next();

    counters const& count() const { return counted; }

private:
    bool happens(double percent);
    std::chrono::milliseconds delay();

    settings chosen;
    counters counted;
    std::mt19937 random;
};
