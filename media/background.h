#pragma once

#include <cstdint>

#include "media/noise.h"

/// The noise behind somebody's speech: the level of the quietest blocks, followed down at once and up by 0.8 dB a
/// second, and the average spectrum of blocks near it. At most -41 dBov: until there was a pause, speech is taken for
/// no background.
class background {
public:
    /// A block of 80 samples was received.
    void hear(std::int16_t const* block);
    noise_shape get_shape() const;

private:
    std::int64_t spectrum[noise_shape::order + 1] = {};  ///< autocorrelation
    std::int64_t floor = -1;                             ///< of a block's energy; -1: none was heard
};
