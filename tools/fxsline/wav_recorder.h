// Writes samples to a WAV file (8 kHz, mono, 16 bit), a second at a time, so that even a killed run leaves a file
// that is at most a second short. The owner calls finish() (or destroys it) at the end.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/fxsline/audio_format.h"
#include "tools/fxsline/outcome.h"

struct sf_private_tag;  // libsndfile's SNDFILE

namespace fxsline {

class wav_recorder {
public:
    // Creates or replaces the file `path`.
    static outcome<wav_recorder> create(std::string const& path);

    wav_recorder(wav_recorder&&) = default;
    wav_recorder& operator=(wav_recorder&&) = delete;
    ~wav_recorder() { finish(); }

    void add(std::span<int16_t const> samples);

    // Writes what is left and closes the file; later calls do nothing. False if anything could not be written.
    bool finish();

private:
    using sound_file = std::unique_ptr<sf_private_tag, int (*)(sf_private_tag*)>;

    explicit wav_recorder(sound_file created) : sound(std::move(created)) {}
    void write_out();

    sound_file sound;
    std::vector<int16_t> unwritten;
    bool failed = false;
};

}  // namespace fxsline
