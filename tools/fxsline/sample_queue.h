// First-in first-out store of samples with a fixed capacity, held by value. It never grows and decides nothing:
// who pushes looks at room() first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fxsline {

class sample_queue {
public:
    explicit sample_queue(size_t capacity_samples) : ring(capacity_samples) {}

    size_t size() const { return stored; }
    size_t room() const { return ring.size() - stored; }

    // Appends `samples`, which must not be more than room().
    void push(std::span<int16_t const> samples) {
        for (int16_t sample : samples)
            ring[(first + stored++) % ring.size()] = sample;
    }

    // Moves the oldest samples to `out`, as many as there are and fit; returns their number.
    size_t pop(std::span<int16_t> out) {
        size_t const count = std::min(out.size(), stored);
        for (size_t i = 0; i < count; i++)
            out[i] = ring[(first + i) % ring.size()];
        discard(count);
        return count;
    }

    // Forgets the `count` (at most size()) oldest samples.
    void discard(size_t count) {
        first = (first + count) % ring.size();
        stored -= count;
    }

private:
    std::vector<int16_t> ring;
    size_t first = 0;
    size_t stored = 0;
};

}  // namespace fxsline
