#pragma once

#include <vector>

#include "bench/impairment/speech.h"

/// What a listener got of what was said, by sound alone: whoever played it is judged alike.
struct verdict {
    int delay_ms, delay_95_ms;   ///< from mouth to ear, median and 95th percentile; -1: nothing was recognised
    std::vector<int> second_ms;  ///< median of each second; -1: nothing was recognised
    double silent_ms;            ///< a second: blocks of 10 ms in which something was said and nothing is heard
    double altered_ms;   ///< a second: blocks in which it is not heard as it was said, with an error above -20 dB
    double distance_db;  ///< spectral_distance_db()
};

/// Both begin at the same time. `sender_ppm`: the speaker's clock against the listener's.
verdict judge(sound const& said, sound const& heard, int sender_ppm);

/// The sharpest bend (second difference) of a sine as heard against the same of the sine as sent, after the first
/// second.
double click_db(sound const& sine, sound const& heard);

/// How a codec bears loss (ITU-T G.113 Appendix I).
struct loss_terms {
    double impairment;  ///< Ie
    double robustness;  ///< Bpl
};
/// R of the E-model (ITU-T G.107, narrow band) with its defaults. `burst_ratio`: mean length of a burst of losses
/// against that of random ones.
double rating(double delay_ms, double lost_percent, double burst_ratio, loss_terms codec);
