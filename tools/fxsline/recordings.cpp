#include "tools/fxsline/recordings.h"

#include <utility>

namespace fxsline {

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
