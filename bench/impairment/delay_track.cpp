#include "bench/impairment/delay_track.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double recognised = 0.85;
constexpr double audible = 20;  // root mean square
constexpr int still = 8;        // samples that a clock which is 2 % off moves the delay in a window, and a little
constexpr int near = 60 * samples_a_ms, furthest = 4000 * samples_a_ms;

std::int64_t product(std::int16_t const* a, std::int16_t const* b) {
    std::int64_t sum = 0;
    for (int i = 0; i < delay_track::window; i++)
        sum += a[i] * b[i];
    return sum;
}

}  // namespace

double energy(sound const& x, int at, int length) {
    std::int64_t sum = 0;
    int const end = std::min(at + length, static_cast<int>(x.size()));
    for (int i = std::max(at, 0); i < end; i++)
        sum += x[static_cast<std::size_t>(i)] * x[static_cast<std::size_t>(i)];
    return static_cast<double>(sum);
}

bool spoken(sound const& x, int at, int length) {
    constexpr double speech = 300;  // root mean square
    return energy(x, at, length) >= speech * speech * length;
}

int percentile(std::vector<int> values, int percent) {
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values[(values.size() - 1) * static_cast<std::size_t>(percent) / 100];
}

delay_track::delay_track(sound const& speech, sound const& ear) : said(speech), heard(ear) {
    for (std::int16_t const sample : said)
        squares.push_back(squares.back() + sample * sample);
    int expected = first_delay();
    for (int at = 0; at + window <= static_cast<int>(heard.size()); at += window) {
        found.push_back(place(at, expected));
        expected = found.back().samples;
    }
}

int delay_track::first_delay() const {
    match best = {0, 0};
    int const end = static_cast<int>(heard.size());
    for (int at = 0; at < sample_rate || (best.likeness < recognised && at < end); at += window)
        if (match const one = search(at, 0, furthest); one.likeness > best.likeness)
            best = one;
    return best.samples;
}

delay_track::window_delay delay_track::place(int at, int expected) const {
    match const close = search(at, expected - near, expected + near);
    if (close.likeness >= recognised) {
        // With a coder's noise in it, speech a pitch period off may be a little more alike than what was said.
        match const same = search(at, expected - still, expected + still);
        return {2 * (1 - same.likeness) <= 3 * (1 - close.likeness) ? same.samples : close.samples, true};
    }
    match const far = search(at, 0, furthest);
    // Periods of speech are alike: another delay counts when what follows has it, too.
    bool const lasts =
        far.likeness >= recognised && search(at + window, far.samples - 2, far.samples + 2).likeness >= recognised;
    return lasts ? window_delay{far.samples, true} : window_delay{expected, false};
}

bool delay_track::all_audible(int at) const {
    constexpr int part = window / 4;
    for (int i = at; i < at + window; i += part)
        if (energy(heard, i, part) < audible * audible * part)
            return false;
    return at + window <= static_cast<int>(heard.size());
}

delay_track::match delay_track::search(int at, int from, int to) const {
    match best = {0, 0};
    double const loudness = energy(heard, at, window);
    if (!all_audible(at))
        return best;
    int const nearest = std::max(from, at + window - static_cast<int>(said.size()));
    for (int lag = nearest; lag <= std::min(to, at); lag++) {
        auto const then = static_cast<std::size_t>(at - lag);
        double const cross = static_cast<double>(product(heard.data() + at, said.data() + then));
        double const other = static_cast<double>(1 + squares[then + window] - squares[then]);
        double const likeness = std::abs(cross) / std::sqrt(loudness * other);
        if (likeness > best.likeness)
            best = {lag, likeness};
    }
    return best;
}

int delay_track::at(int sample) const {
    if (found.empty())
        return 0;
    auto const number = static_cast<std::size_t>(std::max(sample, 0) / window);
    return found[std::min(number, found.size() - 1)].samples;
}

int delay_track::delay_ms(int number, int sender_ppm) const {
    int const at = number * window;
    double const said_ms =
        static_cast<double>(at - found[static_cast<std::size_t>(number)].samples) * 1e6 / (1e6 + sender_ppm);
    return static_cast<int>(std::lround((at - said_ms) / samples_a_ms));
}

std::vector<int> delay_track::delays_ms(int sender_ppm) const {
    std::vector<int> all;
    for (std::size_t i = 0; i < found.size(); i++)
        if (found[i].recognised)
            all.push_back(delay_ms(static_cast<int>(i), sender_ppm));
    return all;
}

std::vector<int> delay_track::second_ms(int sender_ppm) const {
    constexpr std::size_t windows_a_second = sample_rate / window;
    std::vector<int> medians;
    for (std::size_t first = 0; first + windows_a_second <= found.size(); first += windows_a_second) {
        std::vector<int> second;
        for (std::size_t i = first; i < first + windows_a_second; i++)
            if (found[i].recognised)
                second.push_back(delay_ms(static_cast<int>(i), sender_ppm));
        medians.push_back(percentile(second, 50));
    }
    return medians;
}
