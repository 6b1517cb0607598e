#include "bench/impairment/speech.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>

#include "sim/endpoint.h"

namespace {

/// Two resonances, one after the other.
class vocal_tract {
public:
    double formant_hz[2] = {};

    double pass(double x) {
        for (int k = 0; k < 2; k++) {
            double const r = radius[k], angle = 2 * std::numbers::pi * formant_hz[k] / sample_rate;
            double const y = x + 2 * r * std::cos(angle) * history[k][0] - r * r * history[k][1];
            history[k][1] = history[k][0];
            history[k][0] = y;
            x = y / 3;
        }
        return x;
    }

private:
    static constexpr double radius[] = {0.97, 0.94};
    double history[2][2] = {};
};

class speaker {
public:
    explicit speaker(std::uint64_t seed) : random(seed) {}

    std::int16_t say() {
        if (left-- == 0)
            begin_syllable();
        double x = random.between(-100, 100) * (pause ? 0.2 : voiced ? 1.0 : 6.0);
        pitch = std::clamp(pitch + glide, 35.0, 110.0);
        if (++since_pulse >= pitch)
            since_pulse -= pitch, x += pause || !voiced ? 0 : 5000;
        return static_cast<std::int16_t>(std::clamp(tract.pass(x) * 3, -30000.0, 30000.0));
    }

private:
    void begin_syllable() {
        left = random.between(800, 2400);
        pause = random.chance(200);
        voiced = !random.chance(200);
        pitch = random.between(40, 95);
        glide = random.between(-10, 10) / 2000.0;
        tract.formant_hz[0] = random.between(300, 900);
        tract.formant_hz[1] = random.between(900, 2600);
    }

    sim::random_source random;
    vocal_tract tract;
    double pitch = 60, glide = 0, since_pulse = 0;  ///< samples
    int left = 0;
    bool pause = false, voiced = true;
};

std::size_t samples_of(int seconds) {
    return static_cast<std::size_t>(seconds) * sample_rate;
}

}  // namespace

sound make_speech(std::uint64_t seed, int seconds) {
    speaker one(seed);
    sound pcm(samples_of(seconds));
    std::generate(pcm.begin(), pcm.end(), [&] { return one.say(); });
    return pcm;
}

sound make_sine(int seconds) {
    sound pcm(samples_of(seconds));
    for (std::size_t i = 0; i < pcm.size(); i++)
        pcm[i] = static_cast<std::int16_t>(
            std::lround(8000 * std::sin(2 * std::numbers::pi * 397 * static_cast<double>(i) / sample_rate)));
    return pcm;
}

sound read_speech(char const* path, int seconds) {
    sound pcm(samples_of(seconds));
    std::FILE* const file = std::fopen(path, "rb");
    std::size_t const got = file ? std::fread(pcm.data(), sizeof pcm[0], pcm.size(), file) : 0;
    if (got < sample_rate) {
        std::fprintf(stderr, "impairment: no speech in %s\n", path);
        std::exit(EXIT_FAILURE);
    }
    std::fclose(file);
    for (std::size_t i = got; i < pcm.size(); i++)
        pcm[i] = pcm[i - got];
    return pcm;
}
