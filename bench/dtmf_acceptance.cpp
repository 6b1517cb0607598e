// What the DTMF detector accepts and what it takes for a key by mistake, as Markdown tables on standard output.
//
//     dtmf_acceptance [--listener] [--trials N] [file.wav ...]
//
// Key presses are made here in double precision, with random keys, phases and positions against the detector's blocks
// from a fixed seed, so that a run can be repeated. A press counts as accepted when the detected text holds that key
// exactly once and no other. The WAV files (8 kHz, first channel) are speech: every key or fax tone that the detector
// reports in them is false. With --listener it is digit_listener that hears them, and standard error says how much of
// the speech it silenced. Levels are of one of the two tones in dBm0 (0 dBm0: sine of 3.14 dB below full scale).

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "dsp/digit_listener.h"
#include "lib/pcm.h"

namespace {

constexpr double rate_hz = 8000;
constexpr double full_scale_dbm0 = 3.14;  // ITU-T G.711, A-law
constexpr double rows_hz[] = {697, 770, 852, 941};
constexpr double columns_hz[] = {1209, 1336, 1477, 1633};
constexpr char keypad[] = "123A456B789C*0#D";

using signal = std::vector<double>;  // 32768 is full scale

std::mt19937 random_source(20240229);

double uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(random_source()) / 4294967296.0;
}

double peak_of(double dbm0) {
    return 32768 * std::pow(10, (dbm0 - full_scale_dbm0) / 20);
}

struct press {
    double level_dbm0 = -10;  // of the stronger tone
    double twist_db = 0;      // high group above low group
    double row_shift = 0;     // relative error of the low frequency
    double column_shift = 0;  // of the high one
    double length_ms = 80;
    double noise_db = 1000;  // ratio of one tone to the white noise between 0 and 4 kHz
    double pause_ms = 0;     // not 0: a second press of the same key after this pause
};

void add_tone(signal& out, std::size_t from, double length_ms, double hz, double dbm0) {
    double const phase = uniform(0, 2 * std::numbers::pi);
    auto const n = static_cast<std::size_t>(length_ms * rate_hz / 1000);
    for (std::size_t i = 0; i < n; i++)
        out[from + i] += peak_of(dbm0) * std::sin(2 * std::numbers::pi * hz * static_cast<double>(i) / rate_hz + phase);
}

bool with_listener = false;
long silenced_blocks = 0;

/// Blocks of 10 ms, late as they come out, of which nothing is left though there was something, are counted.
std::string listened(str const& pcm) {
    digit_listener listener;
    std::string keys;
    str late[3];
    str const silence('\0', pcm::block_bytes);
    for (int at = 0; at + pcm::block_bytes <= pcm.length(); at += pcm::block_bytes) {
        late[0] = late[1];
        late[1] = late[2];
        late[2] = pcm.substr(at, pcm::block_bytes);
        digit_listener::result const heard = listener.hear(late[2]);
        if (heard.key)
            keys += heard.key;
        silenced_blocks += heard.cleaned == silence && !late[0].empty() && late[0] != silence;
    }
    return keys;
}

std::string detected(signal const& in) {
    std::vector<std::int16_t> pcm;
    for (double const value : in)
        pcm.push_back(static_cast<std::int16_t>(std::lround(std::clamp(value, -32768.0, 32767.0))));
    str const bytes(reinterpret_cast<unsigned char const*>(pcm.data()), static_cast<int>(pcm.size() * sizeof pcm[0]));
    if (with_listener)
        return listened(bytes);
    dtmf_recognition detector;
    detector.add_samples(bytes);
    str const& text = detector.get_detected();
    std::string keys(reinterpret_cast<char const*>(text.cbuffer()), static_cast<std::size_t>(text.length()));
    std::erase_if(keys, [](char c) { return c == ' ' || c == '?'; });
    return keys;
}

bool accepted(press const& p) {
    auto const key = static_cast<unsigned>(uniform(0, 16));
    constexpr std::size_t silence = 1600;
    auto const start = silence + static_cast<std::size_t>(uniform(0, 160));
    auto const step = static_cast<std::size_t>((p.length_ms + p.pause_ms) * rate_hz / 1000);
    signal out(start + 2 * step + silence);
    double const low = p.level_dbm0 - std::max(0.0, p.twist_db), high = p.level_dbm0 + std::min(0.0, p.twist_db);
    int const presses = p.pause_ms > 0 ? 2 : 1;
    for (int i = 0; i < presses; i++) {
        std::size_t const from = start + static_cast<std::size_t>(i) * step;
        add_tone(out, from, p.length_ms, rows_hz[key / 4] * (1 + p.row_shift), low);
        add_tone(out, from, p.length_ms, columns_hz[key % 4] * (1 + p.column_shift), high);
    }
    if (p.noise_db < 1000) {
        std::normal_distribution<double> noise(0, peak_of(p.level_dbm0 - p.noise_db) / std::numbers::sqrt2);
        for (double& value : out)
            value += noise(random_source);
    }
    return detected(out) == std::string(static_cast<std::size_t>(presses), keypad[key]);
}

void table(char const* title, char const* unit, int trials, std::vector<double> const& values,
           std::function<press(double)> const& make) {
    std::string rule = "|---|";
    std::printf("\n%s\n\n| %s |", title, unit);
    for (double const value : values) {
        std::printf(" %g |", value);
        rule += "--:|";
    }
    std::printf("\n%s\n| accepted, %% |", rule.c_str());
    for (double const value : values) {
        int count = 0;
        for (int i = 0; i < trials; i++)
            count += accepted(make(value));
        std::printf(" %.1f |", 100.0 * count / trials);
    }
    std::printf("\n");
}

void key_presses(int trials) {
    std::printf(
        "%d presses for each figure; -10 dBm0 a tone, 80 ms, no twist, exact frequencies, no noise where not "
        "said otherwise.\n",
        trials);
    table("Level of each tone", "dBm0", trials, {-30, -24, -23, -22, -21, -20, -18, -15, -10, -6, -3, 0},
          [](double v) { return press{.level_dbm0 = v}; });
    table("Twist (high group above low group)", "dB", trials, {-12, -10, -9, -8, -6, -4, 0, 4, 6, 8, 9, 10, 12},
          [](double v) { return press{.level_dbm0 = -6, .twist_db = v}; });
    table("Both frequencies off by", "%", trials, {-5, -4, -3.5, -3, -2.5, -1.8, 0, 1.8, 2.5, 3, 3.5, 4, 5},
          [](double v) { return press{.row_shift = v / 100, .column_shift = v / 100}; });
    table("Length of the press", "ms", trials, {20, 30, 40, 45, 50, 55, 60, 65, 70, 80, 100, 500},
          [](double v) { return press{.length_ms = v}; });
    table("Pause between two presses of the same key, both detected", "ms", trials,
          {10, 20, 30, 40, 45, 50, 55, 60, 65, 70, 80, 100}, [](double v) { return press{.pause_ms = v}; });
    table("One tone above white noise (0 to 4 kHz)", "dB", trials, {0, 3, 6, 9, 12, 15, 18, 21, 24, 30},
          [](double v) { return press{.noise_db = v}; });
}

/// The first channel; empty when the file can't be read or has another rate.
signal speech_of(char const* path) {
    SF_INFO info{};
    SNDFILE* const file = sf_open(path, SFM_READ, &info);
    if (file == nullptr)
        return {};
    std::vector<double> frames(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_double(file, frames.data(), info.frames);
    sf_close(file);
    signal first;
    if (info.samplerate == static_cast<int>(rate_hz))
        for (std::size_t i = 0; i < frames.size(); i += static_cast<std::size_t>(info.channels))
            first.push_back(frames[i]);
    return first;
}

void scale_to(signal& speech, double dbm0) {
    double sum = 0;
    for (double const value : speech)
        sum += value * value;
    double const rms = std::sqrt(sum / static_cast<double>(speech.size()));
    for (double& value : speech)
        value *= peak_of(dbm0) / std::numbers::sqrt2 / rms;
}

bool false_hits(std::vector<char const*> const& paths) {
    std::vector<signal> recordings;
    double hours = 0;
    for (char const* const path : paths) {
        recordings.push_back(speech_of(path));
        if (recordings.back().empty()) {
            std::fprintf(stderr, "%s: cannot be read as audio of 8 kHz\n", path);
            return false;
        }
        hours += static_cast<double>(recordings.back().size()) / rate_hz / 3600;
    }
    std::printf(
        "\nFalse reports in %.2f hours of speech (%zu recordings)\n\n"
        "| mean level, dBm0 | keys | fax tones | keys per hour |\n|--:|--:|--:|--:|\n",
        hours, paths.size());
    for (double const dbm0 : {-30.0, -25.0, -20.0, -15.0, -10.0}) {
        std::string all;
        silenced_blocks = 0;
        for (signal& speech : recordings) {
            scale_to(speech, dbm0);
            all += detected(speech);
        }
        auto const fax = std::count(all.begin(), all.end(), 'F');
        auto const keys = static_cast<long>(all.size()) - fax;
        std::printf("| %g | %ld | %ld | %.1f |\n", dbm0, keys, static_cast<long>(fax),
                    static_cast<double>(keys) / hours);
        if (with_listener)
            std::fprintf(stderr, "%g dBm0: %.1f s of speech silenced an hour\n", dbm0,
                         static_cast<double>(silenced_blocks) / 100 / hours);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int trials = 1000;
    std::vector<char const*> recordings(argv + 1, argv + argc);
    if (!recordings.empty() && std::strcmp(recordings[0], "--listener") == 0) {
        with_listener = true;
        recordings.erase(recordings.begin());
    }
    if (recordings.size() >= 2 && std::strcmp(recordings[0], "--trials") == 0) {
        trials = std::atoi(recordings[1]);
        recordings.erase(recordings.begin(), recordings.begin() + 2);
    }
    if (trials < 1 || (!recordings.empty() && recordings[0][0] == '-')) {
        std::fprintf(stderr, "usage: dtmf_acceptance [--listener] [--trials N] [file.wav ...]\n");
        return EXIT_FAILURE;
    }
    key_presses(trials);
    if (!recordings.empty() && !false_hits(recordings))
        return EXIT_FAILURE;
    return EXIT_SUCCESS;
}
