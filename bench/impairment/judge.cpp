#include "bench/impairment/judge.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "bench/impairment/delay_track.h"
#include "bench/impairment/distance.h"

namespace {

constexpr int block = 10 * samples_a_ms;
constexpr double nothing_rms = 20;
constexpr double alteration = 0.01;  // energy of the error against that of the speech

/// The least energy of the difference to what was said at one of these delays or next to it; nobody hears an inversion.
double least_error(sound const& said, sound const& heard, int at, std::initializer_list<int> lags) {
    double const loudness = energy(heard, at, block);
    double least = loudness + energy(said, at - *lags.begin(), block);
    for (int const lag : lags)
        for (int then = std::max(at - lag - 2, 0); then <= at - lag + 2; then++) {
            double cross = 0;
            for (int i = 0; i < block && then + i < static_cast<int>(said.size()); i++)
                cross += heard[static_cast<std::size_t>(at + i)] * said[static_cast<std::size_t>(then + i)];
            least = std::min(least, loudness + energy(said, then, block) - 2 * std::abs(cross));
        }
    return least;
}

double ms_a_second(int blocks, std::size_t samples) {
    return 10.0 * blocks * sample_rate / static_cast<double>(samples);
}

int steepest(sound const& x) {
    int most = 1;
    for (std::size_t i = sample_rate; i < x.size(); i++)
        most = std::max(most, std::abs(x[i] - 2 * x[i - 1] + x[i - 2]));
    return most;
}

}  // namespace

verdict judge(sound const& said, sound const& heard, int sender_ppm) {
    delay_track const track(said, heard);
    int silent = 0, altered = 0;
    for (int at = 0; at + block <= static_cast<int>(heard.size()); at += block) {
        int const lag = track.at(at);
        if (!spoken(said, at - lag, block))
            continue;
        silent += energy(heard, at, block) < nothing_rms * nothing_rms * block;
        double const error =
            least_error(said, heard, at, {lag, track.at(at - delay_track::window), track.at(at + delay_track::window)});
        altered += error > alteration * energy(said, at - lag, block);
    }
    std::vector<int> const delays = track.delays_ms(sender_ppm);
    return {.delay_ms = percentile(delays, 50),
            .delay_95_ms = percentile(delays, 95),
            .second_ms = track.second_ms(sender_ppm),
            .silent_ms = ms_a_second(silent, heard.size()),
            .altered_ms = ms_a_second(altered, heard.size()),
            .distance_db = spectral_distance_db(said, heard, track)};
}

double click_db(sound const& sine, sound const& heard) {
    return 20 * std::log10(static_cast<double>(steepest(heard)) / steepest(sine));
}

double rating(double delay_ms, double lost_percent, double burst_ratio, loss_terms codec) {
    double const late = delay_ms > 177.3 ? 0.11 * (delay_ms - 177.3) : 0;
    double const lost = lost_percent / (lost_percent / burst_ratio + codec.robustness);
    double const r = 93.2 - 0.024 * delay_ms - late - codec.impairment - (95 - codec.impairment) * lost;
    return std::max(0.0, r);
}
