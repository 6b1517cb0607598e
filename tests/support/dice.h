#pragma once

#include <random>

/// Random decisions that are the same on every machine.
class dice {
public:
    explicit dice(unsigned seed) : engine(seed) {}
    /// 0..n-1
    int below(int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); }
    /// low..high
    int between(int low, int high) { return low + below(high - low + 1); }
    bool chance(int percent) { return below(100) < percent; }
    unsigned word() { return static_cast<unsigned>(engine()); }

private:
    std::mt19937 engine;
};
