#include "tools/fxsheard/comparison.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <stdexcept>

namespace {

constexpr int samples_per_ms = 8;
constexpr double full_scale = 32768;
constexpr std::size_t longest_excerpt = 3 * 8000;  ///< samples correlated at every delay
constexpr int audible = 200;                       ///< a sample above it belongs to the speech

double energy(std::span<std::int16_t const> wave) {
    double sum = 0;
    for (double const s : wave)
        sum += s * s;
    return sum;
}

double dbfs(std::span<std::int16_t const> wave) {
    double const power = energy(wave) / static_cast<double>(std::max<std::size_t>(wave.size(), 1));
    return 10 * std::log10(std::max(power, 1e-9) / (full_scale * full_scale));
}

/// From the first to the last audible sample.
std::span<std::int16_t const> audible_part(samples const& wave) {
    auto const heard = [](std::int16_t s) { return std::abs(s) > audible; };
    auto const first = std::find_if(wave.begin(), wave.end(), heard);
    auto const last = std::find_if(wave.rbegin(), wave.rend(), heard).base();
    return first < last ? std::span(first, last) : std::span<std::int16_t const>();
}

/// Whether the best correlation is weak, or not much better than one elsewhere.
bool is_unsure(std::vector<float> const& correlations, std::ptrdiff_t best) {
    constexpr float weak = 0.3F, nearly = 0.8F;
    constexpr std::ptrdiff_t elsewhere = 20 * samples_per_ms;
    float rival = 0;
    for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(correlations.size()); i++)
        if (std::abs(i - best) >= elsewhere)
            rival = std::max(rival, std::abs(correlations[static_cast<std::size_t>(i)]));
    float const strongest = std::abs(correlations[static_cast<std::size_t>(best)]);
    return strongest < weak || rival > nearly * strongest;
}

double square(std::int16_t sample) {
    return double(sample) * sample;
}

double product(std::span<std::int16_t const> a, std::int16_t const* b) {
    std::int64_t sum = 0;
    for (std::int16_t const s : a)
        sum += s * *b++;
    return static_cast<double>(sum);
}

}  // namespace

samples read_wav(std::string const& path) {
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr)
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    samples wave(static_cast<std::size_t>(info.frames));
    bool const usable = info.channels == 1 && info.samplerate == 8000;
    if (usable)
        wave.resize(static_cast<std::size_t>(sf_read_short(file, wave.data(), info.frames)));
    sf_close(file);
    if (!usable)
        throw std::runtime_error(path + ": not mono at 8000 Hz");
    return wave;
}

comparison compare(samples const& said, samples const& heard, int longest_delay_ms, int least_delay_ms) {
    comparison best{.unsure = true};
    std::span<std::int16_t const> const speech = audible_part(said);
    std::span<std::int16_t const> const excerpt = speech.first(std::min(speech.size(), longest_excerpt));
    auto const start = excerpt.empty() ? 0 : static_cast<std::ptrdiff_t>(excerpt.data() - said.data());
    auto const room = static_cast<std::ptrdiff_t>(heard.size()) - static_cast<std::ptrdiff_t>(excerpt.size());
    std::ptrdiff_t const first = std::max(start + std::ptrdiff_t{least_delay_ms} * samples_per_ms, std::ptrdiff_t{0});
    std::ptrdiff_t const last = std::min(start + std::ptrdiff_t{longest_delay_ms} * samples_per_ms, room);
    if (excerpt.empty() || first > last)
        return best;
    std::vector<float> correlations;
    double const said_energy = energy(excerpt);
    double heard_energy = energy(std::span(heard).subspan(static_cast<std::size_t>(first), excerpt.size()));
    for (std::ptrdiff_t at = first; at <= last; at++) {
        std::int16_t const* const there = heard.data() + at;
        double const norm = std::sqrt(said_energy * heard_energy);
        correlations.push_back(static_cast<float>(norm > 0 ? product(excerpt, there) / norm : 0));
        if (at < last)
            heard_energy += square(there[excerpt.size()]) - square(there[0]);
    }
    auto const magnitude = [](float c) { return std::abs(c); };
    auto const found = std::ranges::max_element(correlations, {}, magnitude);
    best.similarity = std::abs(*found);
    if (best.similarity == 0)
        return best;
    best.inverted = *found < 0;
    std::ptrdiff_t const at = first + (found - correlations.begin());
    std::size_t const length = std::min(speech.size(), heard.size() - static_cast<std::size_t>(at));
    best.delay_ms = static_cast<double>(at - start) / samples_per_ms;
    best.said_dbfs = dbfs(speech.first(length));
    best.heard_dbfs = dbfs(std::span(heard).subspan(static_cast<std::size_t>(at), length));
    best.level_db = best.heard_dbfs - best.said_dbfs;
    best.unsure = is_unsure(correlations, found - correlations.begin());
    return best;
}
