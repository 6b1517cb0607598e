#include "tools/fxsline/speech.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <numeric>
#include <sstream>

namespace fxsline {

namespace {

constexpr double lowest_hz = 100;
constexpr double highest_hz = 3900;  ///< just below half the sample rate
constexpr double lowest_dbfs = -90;  ///< about one unit of a 16-bit sample

std::string shortest(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

int16_t to_sample(double value) {
    return static_cast<int16_t>(std::clamp(std::lround(value), -32768L, 32767L));
}

outcome<std::vector<double>> parse_frequencies(std::string const& text) {
    outcome<std::vector<double>> result;
    result.value.emplace();
    std::istringstream stream(text + '+');
    std::string one;
    while (std::getline(stream, one, '+')) {
        char* end = nullptr;
        double const hz = std::strtod(one.c_str(), &end);
        if (one.empty() || *end != '\0' || !(hz >= lowest_hz && hz <= highest_hz))
            return {std::nullopt, "a frequency is 100 to 3900 Hz, not '" + one + "'"};
        result.value->push_back(hz);
    }
    return result;
}

outcome<speech> parse_tone(std::string const& arguments) {
    std::istringstream words(arguments);
    std::string frequencies;
    std::string level;
    std::string excess;
    if (!(words >> frequencies >> level) || (words >> excess))
        return outcome<speech>::failed("a tone needs frequency and level, as in 'tone 440 -20'");
    auto parsed = parse_frequencies(frequencies);
    if (!parsed.value)
        return outcome<speech>::failed(parsed.error);
    char* end = nullptr;
    double const dbfs = std::strtod(level.c_str(), &end);
    if (*end != '\0' || !(dbfs >= lowest_dbfs && dbfs <= 0))
        return outcome<speech>::failed("a level is -90 to 0 dBFS, not '" + level + "'");
    return {speech::tone(std::move(*parsed.value), dbfs), {}};
}

using sound_file = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

/// Opens a regular file only: a pipe or device would stop the clock until data came.
outcome<sound_file> open_sound(std::string const& path, SF_INFO& info) {
    int const fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        if (fd >= 0)
            close(fd);
        return outcome<sound_file>::failed("can't open the file " + path);
    }
    sound_file sound(sf_open_fd(fd, SFM_READ, &info, SF_TRUE), sf_close);
    if (!sound)
        return outcome<sound_file>::failed(path + ": " + sf_strerror(nullptr));
    if (info.samplerate != static_cast<int>(sample_rate_hz)) {
        return outcome<sound_file>::failed(path + " has " + std::to_string(info.samplerate) +
                                           " samples a second, a telephone line has 8000 (convert it first, for "
                                           "example with sox " +
                                           path + " -r 8000 -c 1 -b 16 new.wav)");
    }
    return {std::move(sound), {}};
}

/// The rest of `sound`, the channels of each frame averaged.
std::vector<int16_t> read_mono(SNDFILE* sound, size_t channels) {
    std::vector<int16_t> samples;
    std::vector<float> frames(4096 * channels);  // full scale is 1; 16-bit samples come through unchanged
    for (sf_count_t count; (count = sf_readf_float(sound, frames.data(), 4096)) > 0;) {
        for (size_t frame = 0; frame < static_cast<size_t>(count); frame++) {
            float const* first = &frames[frame * channels];
            float const sum = std::accumulate(first, first + channels, 0.0F);
            samples.push_back(to_sample(32768.0 * sum / static_cast<double>(channels)));
        }
    }
    return samples;
}

}  // namespace

speech speech::tone(std::vector<double> hertz, double dbfs) {
    speech made;
    made.phases_cycles.resize(hertz.size());
    made.frequencies_hz = std::move(hertz);
    made.level_dbfs = dbfs;
    made.amplitude = 32767 * std::pow(10, dbfs / 20);
    return made;
}

speech speech::recording(std::vector<int16_t> recorded, bool again, std::string shown_name) {
    speech made;
    made.samples = std::move(recorded);
    made.loop = again;
    made.name = std::move(shown_name);
    return made;
}

void speech::next(block& out) {
    for (int16_t& sample : out) {
        double sum = 0;
        for (size_t i = 0; i < frequencies_hz.size(); i++) {
            sum += amplitude * std::sin(2 * std::numbers::pi * phases_cycles[i]);
            phases_cycles[i] = std::fmod(phases_cycles[i] + frequencies_hz[i] / sample_rate_hz, 1);
        }
        sample = to_sample(sum);
        if (position < samples.size()) {
            sample = samples[position++];
            position = loop ? position % samples.size() : position;
        }
    }
}

bool speech::ended() const {
    return !samples.empty() && position == samples.size();
}

std::string speech::describe() const {
    if (!samples.empty())
        return (loop ? "loop " : "wav ") + name;
    std::string text;
    for (double hz : frequencies_hz)
        text += (text.empty() ? "tone " : "+") + shortest(hz);
    return text.empty() ? "silence" : text + " " + shortest(level_dbfs);
}

outcome<speech> load_speech(std::string const& path, bool loop) {
    SF_INFO info{};
    auto opened = open_sound(path, info);
    if (!opened.value)
        return outcome<speech>::failed(opened.error);
    SNDFILE* sound = opened.value->get();
    std::vector<int16_t> samples = read_mono(sound, static_cast<size_t>(info.channels));
    if (samples.empty())
        return outcome<speech>::failed(path + " has no samples");
    return {speech::recording(std::move(samples), loop, path), {}};
}

outcome<speech> parse_speech(std::string_view command) {
    if (command.ends_with('\n'))
        command.remove_suffix(1);
    size_t const space = command.find(' ');
    std::string_view const verb = command.substr(0, space);
    std::string const arguments(space == command.npos ? std::string_view() : command.substr(space + 1));
    if (verb == "silence" && arguments.empty())
        return {speech(), {}};
    if (verb == "tone")
        return parse_tone(arguments);
    if ((verb == "wav" || verb == "loop") && !arguments.empty())
        return load_speech(arguments, verb == "loop");
    return outcome<speech>::failed("not a speech command: '" + std::string(command) +
                                   "' (silence, tone HZ DBFS, wav PATH, loop PATH)");
}

}  // namespace fxsline
