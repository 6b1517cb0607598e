#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Compares what one telephone said with what another heard.

/// 16-bit mono PCM at 8 kHz.
using samples = std::vector<std::int16_t>;

/// Reads a mono WAV file of 8 kHz; throws std::runtime_error with a clear text otherwise.
samples read_wav(std::string const& path);

struct comparison {
    double delay_ms;    ///< from mouth to ear; both recordings start at the same moment
    double level_db;    ///< heard minus said, over the time in which something was said
    double similarity;  ///< 0 (nothing in common) to 1 (the same wave form but for its level)
    bool inverted;      ///< the wave form arrived upside down
    bool unsure;        ///< a weak match, or another delay, 20 ms or more away, fits nearly as well
    double said_dbfs;   ///< RMS level of the speech
    double heard_dbfs;
};

/// Finds the delay from `least_delay_ms` (negative: heard before it was said, the recordings began apart) to
/// `longest_delay_ms` at which the recordings correlate best. All zero and unsure when either is silent.
comparison compare(samples const& said, samples const& heard, int longest_delay_ms, int least_delay_ms = 0);
