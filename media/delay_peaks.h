#pragma once

#include <cstdint>

/// Hold-ups of a stream that come again: a radio that looks for other stations every few seconds, a neighbour's
/// backup. They are too rare to count among the usual delays, yet each costs as much speech as it is long. One is
/// forgotten; when a second one follows within 10 s, delays as high as the two are expected until none came for twice
/// the time between them. By the E-model (ITU-T G.107) 100 ms of delay cost 2.4, losing 100 ms every T seconds costs
/// about 37 / T: worth waiting for up to 15 s. All times are 8 kHz ticks and wrap; reads no clock.
class delay_peaks {
public:
    /// A packet arrived so much later than the fastest one, while 99 of 100 are not later than `usual`.
    void add(int delay, int usual, std::uint32_t arrived);
    /// The delay of hold-ups that repeat, with 1.25 ms of margin; 0: there are none, or they last longer than 200 ms.
    int get_expected() const;

private:
    int heights[2] = {};       ///< of the last hold-up and the one before
    std::uint32_t began = 0;   ///< arrival of the last one's first packet
    std::uint32_t period = 0;  ///< between the last two; 0: they don't repeat
    bool any = false;          ///< there was one
};
