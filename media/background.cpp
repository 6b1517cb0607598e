#include "media/background.h"

#include <algorithm>

#include "lib/pcm.h"

namespace {

constexpr int block_samples = pcm::block_samples;
constexpr int loudest = 300;              // -41 dBov
constexpr int falling = 2, rising = 512;  // shares of the way that the floor moves in a block
constexpr int averaged = 16;              // blocks

std::int64_t correlate(std::int16_t const* x, int lag) {
    std::int64_t sum = 0;
    for (int i = lag; i < block_samples; i++)
        sum += x[i] * x[i - lag];
    return sum;
}

}  // namespace

void background::hear(std::int16_t const* block) {
    std::int64_t const energy = correlate(block, 0);
    if (floor < 0)
        floor = energy;
    floor += energy < floor ? (energy - floor) / falling : floor / rising + 1;
    if (energy > 2 * floor)
        return;
    spectrum[0] += (energy - spectrum[0]) / averaged;
    for (int lag = 1; lag <= noise_shape::order; lag++)
        spectrum[lag] += (correlate(block, lag) - spectrum[lag]) / averaged;
}

noise_shape background::get_shape() const {
    if (floor <= 0)
        return {};
    auto const level = static_cast<int>(square_root(static_cast<std::uint64_t>(floor / block_samples)));
    return noise_shape::of_autocorrelation(spectrum, std::min(level, loudest));
}
