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
    explicit sample_queue(size_t capacity_samples) : ring_(capacity_samples) {}

    size_t size() const { return size_; }
    size_t room() const { return ring_.size() - size_; }

    // Appends `samples`, which must not be more than room().
    void push(std::span<int16_t const> samples) {
        for (int16_t sample : samples)
            ring_[(first_ + size_++) % ring_.size()] = sample;
    }

    // Moves the oldest samples to `out`, as many as there are and fit; returns their number.
    size_t pop(std::span<int16_t> out) {
        size_t const count = std::min(out.size(), size_);
        for (size_t i = 0; i < count; i++)
            out[i] = ring_[(first_ + i) % ring_.size()];
        discard(count);
        return count;
    }

    // Forgets the `count` (at most size()) oldest samples.
    void discard(size_t count) {
        first_ = (first_ + count) % ring_.size();
        size_ -= count;
    }

private:
    std::vector<int16_t> ring_;
    size_t first_ = 0;
    size_t size_ = 0;
};

}  // namespace fxsline
