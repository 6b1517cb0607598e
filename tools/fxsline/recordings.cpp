#include "tools/fxsline/recordings.h"

#include <utility>

namespace fxsline {

std::string recordings::create(const std::map<unsigned, std::string>& heard_files,
                               const std::map<unsigned, std::string>& said_files, line_bank& bank) {
    for (const auto& [line, path] : heard_files) {
        bank.line(line).tap_heard(add(path));
    }
    for (const auto& [line, path] : said_files) {
        bank.line(line).tap_said(add(path));
    }
    return error_;
}

bool recordings::finish() {
    bool written = true;
    for (wav_recorder& recorder : recorders_) {
        written &= recorder.finish();
    }
    return written;
}

simulated_line::tap recordings::add(const std::string& path) {
    auto created = wav_recorder::create(path);
    if (!created.value) {
        error_ = created.error;
        return {};
    }
    wav_recorder& recorder = recorders_.emplace_back(std::move(*created.value));
    return [&recorder](const block& samples) { recorder.add(samples); };
}

}  // namespace fxsline
