#include "media/speech_queue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int quiet = 100;     // mean magnitude, -50 dBov: nobody hears what is done to it
constexpr int analysed = 120;  // samples, at least: the longest period
constexpr int summed = 2048;   // magnitude up to which products of 120 samples fit in 32 bits

/// Reduces magnitudes so that sums of products don't overflow.
int scale_of(std::int16_t const* x, int n) {
    int highest = 0, shift = 0;
    for (int i = 0; i < n; i++)
        highest = std::max(highest, std::abs(int{x[i]}));
    while (highest >> shift >= summed)
        shift++;
    return shift;
}

struct products {
    std::int32_t cross = 0;
    std::int32_t energy = 0;  ///< of the second one
};

products correlate(std::int16_t const* a, std::int16_t const* b, int n, int step, int shift) {
    products sum;
    for (int i = 0; i < n; i += step) {
        int const x = a[i] >> shift, y = b[i] >> shift;
        sum.cross += x * y;
        sum.energy += y * y;
    }
    return sum;
}

/// Squared correlation times the first one's energy; 0 for what is opposite.
std::int64_t score_of(products const& p) {
    return p.cross <= 0 ? 0 : std::int64_t{p.cross} * p.cross / (p.energy + 1);
}

}  // namespace

std::int16_t* speech_queue::grow(int n) {
    if (end + n > remembered + room) {
        int const back = begin - remembered;
        std::memmove(samples, samples + back, sizeof(std::int16_t) * static_cast<unsigned>(end - back));
        begin -= back;
        end -= back;
    }
    end += n;
    return samples + end - n;
}

int speech_queue::find_period(std::int16_t const* x, int length, int shortest, int longest, bool backward, int& alike) {
    int const direction = backward ? -1 : 1;
    int const shift = scale_of(backward ? x - longest : x, length + longest);
    std::int64_t best = -1;
    int lag = shortest;
    auto const look = [&](int candidate, int step) {
        std::int64_t const score = score_of(correlate(x, x + direction * candidate, length, step, shift));
        if (score > best)
            best = score, lag = candidate;
    };
    for (int candidate = shortest; candidate <= longest; candidate += 2)
        look(candidate, 2);
    int const coarse = lag;
    best = -1;
    for (int candidate = std::max(coarse - 1, shortest); candidate <= std::min(coarse + 1, longest); candidate++)
        look(candidate, 1);
    int const energy = correlate(x, x, length, 1, shift).energy;
    std::int64_t const loudness = std::int64_t{energy} << 2 * shift;
    alike = loudness < std::int64_t{quiet} * quiet * length ? 1024 : static_cast<int>(best * 1024 / (energy + 1));
    return lag;
}

int speech_queue::cut(int longest, likeness wanted) {
    longest = std::min({longest, longest_period, size() / 2});
    if (longest < shortest_period)
        return 0;
    int alike = 0;
    std::int16_t* const x = samples + begin;
    int const length = std::min(analysed, size() - longest);
    int const lag = find_period(x, length, shortest_period, longest, false, alike);
    if (alike < wanted.least)
        return 0;
    for (int k = 0; k < lag; k++)
        x[lag + k] = cross_fade(x[k], x[lag + k], k, lag);
    begin += lag;
    std::memmove(samples + lag, samples, sizeof(std::int16_t) * static_cast<unsigned>(begin - lag));
    return lag;
}

int speech_queue::stretch(int longest, likeness wanted) {
    longest = std::min({longest, longest_period, size()});
    if (longest < shortest_period)
        return 0;
    int alike = 0;
    int const length = std::min(analysed, size());
    int const lag = find_period(front(), length, shortest_period, longest, true, alike);
    if (alike < wanted.least)
        return 0;
    grow(lag);
    std::int16_t* const x = samples + begin;
    std::memmove(x + lag, x, sizeof(std::int16_t) * static_cast<unsigned>(size() - lag));
    for (int k = 0; k < lag; k++)
        x[k] = cross_fade(x[lag + k], x[k - lag], k, lag);
    return lag;
}
