#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/fxsline/line_audio.h"
#include "tools/fxsline/outcome.h"

namespace fxsline {

/// What a telephone says: silence, a steady tone (one frequency or a sum of several), or recorded samples, once or over
/// and over. Copies speak independently. The owner asks for one block per tick.
class speech {
public:
    /// Silence that never ends.
    speech() = default;

    /// A tone that never ends: the sum of sine waves of `frequencies_hz`, each with `level_dbfs` (0 dBFS is a sine
    /// whose peak is 32767). Sums beyond 16 bits are clipped.
    static speech tone(std::vector<double> hertz, double dbfs);

    /// `samples` (8 kHz), then silence; or from the start again with `loop`. `name` is what describe() shows.
    static speech recording(std::vector<int16_t> recorded, bool again, std::string shown_name);

    /// Gives the next 10 ms.
    void next(block& out);

    /// True once a recording without loop has been said to its last sample. Silence and tones never end.
    bool ended() const;

    /// The command (see parse_speech) that makes this speech.
    std::string describe() const;

private:
    std::vector<double> frequencies_hz;  ///< empty: not a tone
    double level_dbfs = 0;
    double amplitude = 0;               ///< peak of each sine, in sample units
    std::vector<double> phases_cycles;  ///< of each frequency, 0 <= phase < 1
    std::vector<int16_t> samples;       ///< empty: not a recording
    size_t position = 0;                ///< of the next sample
    bool loop = false;
    std::string name;
};

/// Loads a whole WAV file (any format that libsndfile reads from a regular file). It must have 8000 samples a second;
/// several channels are averaged to one.
outcome<speech> load_speech(std::string const& path, bool loop);

/// Makes speech from a command, the last line feed of which may be missing:
///   silence
///   tone HZ[+HZ...] DBFS        100 to 3900 Hz, -90 to 0 dBFS
///   wav PATH                    said once
///   loop PATH                   said over and over
outcome<speech> parse_speech(std::string_view command);

}  // namespace fxsline
