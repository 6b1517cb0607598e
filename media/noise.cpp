#include "media/noise.h"

#include <algorithm>
#include <bit>

namespace {

constexpr int unity = 1 << 15;
constexpr int steepest = 32440;  // 0.99: a filter that rings no longer than 20 ms
constexpr int fraction = 64;     // of a sample in the filter

std::int16_t as_reflection(std::int64_t x) {
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(x, -steepest, steepest));
}

std::int32_t times(std::int32_t x, std::int16_t k) {
    return static_cast<std::int32_t>((std::int64_t{x} * k) / unity);
}

}  // namespace

std::uint32_t square_root(std::uint64_t x) {
    std::uint64_t root = 0;
    for (std::uint64_t bit = std::uint64_t{1} << 31; bit != 0; bit >>= 1)
        if ((root | bit) * (root | bit) <= x)
            root |= bit;
    return static_cast<std::uint32_t>(root);
}

noise_shape noise_shape::of_payload(str const& payload) {
    constexpr int level_mask = 127, reflection_zero = 127, reflection_step = 258;
    constexpr std::uint64_t one_db_less = 3738178;  // 10^(-1/20), Q22
    noise_shape told;
    if (payload.empty())
        return told;
    std::uint64_t level = std::uint64_t{32768} << 20;
    for (int db = payload[0] & level_mask; db > 0; db--)
        level = level * one_db_less >> 22;
    told.level = static_cast<int>(std::min<std::uint64_t>((level + (1 << 19)) >> 20, 32767));
    for (int i = 0; i < std::min(order, payload.length() - 1); i++)
        told.reflection[i] = as_reflection(reflection_step * (payload[i + 1] - reflection_zero));
    return told;
}

/// The recursion of Le Roux and Gueguen (IEEE Trans. ASSP 25, 1977), in which no value exceeds the first one.
noise_shape noise_shape::of_autocorrelation(std::int64_t const* r, int level) {
    noise_shape found;
    found.level = level;
    if (r[0] <= 0)
        return found;
    int const shift = std::max(static_cast<int>(std::bit_width(static_cast<std::uint64_t>(r[0]))) - 30, 0);
    std::int64_t forward[order + 1], backward[order + 1];
    for (int i = 0; i <= order; i++)
        forward[i] = backward[i] = r[i] >> shift;
    backward[0] += backward[0] / 1024 + 1;  // a floor 30 dB below
    for (int m = 1; m <= order; m++) {
        std::int16_t const k = as_reflection(-forward[m] * unity / backward[m - 1]);
        found.reflection[m - 1] = k;
        for (int i = order; i >= m; i--) {
            std::int64_t const f = forward[i], b = backward[i - 1];
            forward[i] = f + k * b / unity;
            backward[i] = b + k * f / unity;
        }
        if (backward[m] <= 0)
            break;
    }
    return found;
}

/// The filter raises the power by the product of 1 / (1 - k^2); that of uniform numbers is a third of their peak's.
void noise_generator::set(noise_shape const& wanted) {
    shape = wanted;
    std::int64_t passed = std::int64_t{1} << 30;
    for (int const k : shape.reflection)
        passed = passed * ((std::int64_t{1} << 30) - std::int64_t{k} * k) >> 30;
    std::int64_t const peak = square_root(static_cast<std::uint64_t>(3 * passed) << 10);  // Q20
    amplitude = static_cast<std::int32_t>(shape.level * peak >> (20 - std::countr_zero(unsigned{fraction})));
}

int noise_generator::next() {
    if (shape.level == 0)
        return 0;
    random = random * 1664525 + 1013904223;
    std::int32_t x = times(amplitude, static_cast<std::int16_t>(random >> 16));
    for (int m = noise_shape::order - 1; m >= 0; m--) {
        x -= times(state[m], shape.reflection[m]);
        if (m + 1 < noise_shape::order)
            state[m + 1] = state[m] + times(x, shape.reflection[m]);
    }
    state[0] = x;
    return x / fraction;
}
