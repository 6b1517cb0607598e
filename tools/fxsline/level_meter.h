// Level of the last second of a line's audio: root mean square over the newest 100 blocks, and the peak of all
// samples so far. Held by value.
#pragma once

#include <array>
#include <cstdint>

#include "tools/fxsline/audio_format.h"

namespace fxsline {

class level_meter {
public:
    static constexpr double silence_dbfs = -99;  // shown for digital silence, which has no logarithm

    void add(block const& samples);

    // 0 dBFS is the level of a sine whose peak is 32767. Before the first full second: over what there is.
    double dbfs() const;

    unsigned peak() const { return highest; }  // 0 to 32768

private:
    std::array<uint64_t, 100> energies{};  // sum of squares of each of the newest blocks
    uint64_t added = 0;                    // added so far
    uint64_t total = 0;                    // sum of energies
    unsigned highest = 0;
};

}  // namespace fxsline
