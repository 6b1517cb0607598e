#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/fxsline/line_audio.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/outcome.h"

struct sf_private_tag;  // libsndfile's SNDFILE

namespace fxsline {

/// Writes samples to a WAV file (8 kHz, mono, 16 bit), a second at a time, so that even a killed run leaves a file
/// that is at most a second short. The owner calls finish() (or destroys it) at the end.
class wav_recorder {
public:
    /// Creates or replaces the file `path`.
    static outcome<wav_recorder> create(std::string const& path);

    wav_recorder(wav_recorder&&) = default;
    wav_recorder& operator=(wav_recorder&&) = delete;
    ~wav_recorder() { finish(); }

    void add(std::span<int16_t const> samples);

    /// Writes what is left and closes the file; later calls do nothing. False if anything could not be written.
    bool finish();

private:
    using sound_file = std::unique_ptr<sf_private_tag, int (*)(sf_private_tag*)>;

    explicit wav_recorder(sound_file created) : sound(std::move(created)) {}
    void write_out();

    sound_file sound;
    std::vector<int16_t> unwritten;
    bool failed = false;
};

/// The WAV files of a run: what the telephones hear and say, from the start of the clock to finish(). Must live as long
/// as the bank ticks.
class recordings {
public:
    /// Creates the files (path by line) and lets the lines of `bank` feed them. An empty text, or what went wrong.
    std::string create(std::map<unsigned, std::string> const& heard_files,
                       std::map<unsigned, std::string> const& said_files, line_bank& bank);

    /// Completes the files; false if anything could not be written.
    bool finish();

private:
    /// What feeds a new file at `path`; empty, with error set, if it can't be created.
    simulated_line::tap add(std::string const& path);

    std::list<wav_recorder> recorders;
    std::string error;
};

}  // namespace fxsline
