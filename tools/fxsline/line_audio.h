#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "lib/pcm.h"

namespace fxsline {

// What the line driver carries in both directions: audio as in lib/pcm.h, a block a tick.
inline constexpr unsigned sample_rate_hz = pcm::rate_hz;
inline constexpr unsigned tick_ms = pcm::block_ms;
inline constexpr size_t block_samples = pcm::block_samples;

using block = std::array<int16_t, block_samples>;

/// Samples, first in, first out, with a fixed capacity. Look at room() before push().
class sample_queue {
public:
    explicit sample_queue(size_t capacity_samples) : ring(capacity_samples) {}

    size_t size() const { return stored; }
    size_t room() const { return ring.size() - stored; }

    /// Appends `samples`, which must not be more than room().
    void push(std::span<int16_t const> samples) {
        for (int16_t sample : samples)
            ring[(first + stored++) % ring.size()] = sample;
    }

    /// Moves the oldest samples to `out`, as many as there are and fit; returns their number.
    size_t pop(std::span<int16_t> out) {
        size_t const count = std::min(out.size(), stored);
        for (size_t i = 0; i < count; i++)
            out[i] = ring[(first + i) % ring.size()];
        discard(count);
        return count;
    }

    /// Forgets the `count` (at most size()) oldest samples.
    void discard(size_t count) {
        first = (first + count) % ring.size();
        stored -= count;
    }

private:
    std::vector<int16_t> ring;
    size_t first = 0;
    size_t stored = 0;
};

/// Level of the last second of a line's audio: root mean square over the newest 100 blocks, and the peak of all samples
/// so far.
class level_meter {
public:
    static constexpr double silence_dbfs = -99;  ///< shown for digital silence, which has no logarithm

    void add(block const& samples);

    /// 0 dBFS is the level of a sine whose peak is 32767. Before the first full second: over what there is.
    double dbfs() const;

    unsigned peak() const { return highest; }  ///< 0 to 32768

private:
    std::array<uint64_t, 100> energies{};  ///< sum of squares of each of the newest blocks
    uint64_t added = 0;                    ///< blocks so far
    uint64_t total = 0;                    ///< sum of energies
    unsigned highest = 0;
};

}  // namespace fxsline
