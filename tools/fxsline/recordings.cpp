#include "tools/fxsline/recordings.h"

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

std::string recordings::create(std::map<unsigned, std::string> const& heard_files,
                               std::map<unsigned, std::string> const& said_files, line_bank& bank) {
    for (auto const& [line, path] : heard_files)
        bank.line(line).tap_heard(add(path));
    for (auto const& [line, path] : said_files)
        bank.line(line).tap_said(add(path));
    return error;
}

bool recordings::finish() {
    bool written = true;
    for (wav_recorder& recorder : recorders)
        written &= recorder.finish();
    return written;
}

simulated_line::tap recordings::add(std::string const& path) {
    auto created = wav_recorder::create(path);
    if (!created.value) {
        error = created.error;
        return {};
    }
    wav_recorder& recorder = recorders.emplace_back(std::move(*created.value));
    return [&recorder](block const& samples) { recorder.add(samples); };
}

}  // namespace fxsline
