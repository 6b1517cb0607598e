// The WAV files of a run: what the telephones hear and say, from the start of the clock to finish(). Must outlive the
// time during which the bank ticks.
#pragma once

#include <list>
#include <map>
#include <string>

#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/wav_recorder.h"

namespace fxsline {

class recordings {
public:
    // Creates the files (path by line) and lets the lines of `bank` feed them. An empty text, or what went wrong.
    std::string create(std::map<unsigned, std::string> const& heard_files,
                       std::map<unsigned, std::string> const& said_files, line_bank& bank);

    // Completes the files; false if anything could not be written.
    bool finish();

private:
    // What feeds a new file at `path`; empty, with error set, if it can't be created.
    simulated_line::tap add(std::string const& path);

    std::list<wav_recorder> recorders;
    std::string error;
};

}  // namespace fxsline
