#include "tools/fxsline/wav_recorder.h"

#include <sndfile.h>

#include <utility>

namespace fxsline {

outcome<wav_recorder> wav_recorder::create(std::string const& path) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(sample_rate_hz);
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    sound_file sound(sf_open(path.c_str(), SFM_WRITE, &info), sf_close);
    if (!sound)
        return outcome<wav_recorder>::failed("can't write " + path + ": " + sf_strerror(nullptr));
    return {wav_recorder(std::move(sound)), {}};
}

void wav_recorder::add(std::span<int16_t const> samples) {
    if (!sound)
        return;
    unwritten.insert(unwritten.end(), samples.begin(), samples.end());
    if (unwritten.size() >= sample_rate_hz) {
        write_out();
        sf_command(sound.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
    }
}

bool wav_recorder::finish() {
    if (sound) {
        write_out();
        failed |= sf_close(sound.release()) != 0;
    }
    return !failed;
}

void wav_recorder::write_out() {
    auto const count = static_cast<sf_count_t>(unwritten.size());
    failed |= sf_write_short(sound.get(), unwritten.data(), count) != count;
    unwritten.clear();
}

}  // namespace fxsline
