#pragma once

#include <iomanip>
#include <sstream>

#include "tests/tools/child.h"
#include "tests/tools/fxsctl/fake_process.h"
#include "tools/protocol/description.h"

/// Runs of fxsctl.

inline std::vector<std::string> split(std::string const& text, char separator) {
    std::istringstream in(text);
    std::vector<std::string> parts;
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

/// fxsctl, started with these arguments (quotation marks hold words together) for this process, if any.
inline child start_fxsctl(std::string const& arguments, fake_process const* process = nullptr) {
    std::istringstream in(arguments);
    std::vector<std::string> words{FXSCTL};
    for (std::string word; in >> std::quoted(word);)
        words.push_back(word);
    setenv("FXSMEDIA_PORT", process != nullptr ? std::to_string(process->port()).c_str() : "", 1);
    return child(words);
}

struct outcome {
    int exit_code;
    std::string out, err;
};

/// The same to its end.
inline outcome run_fxsctl(std::string const& arguments, fake_process const* process = nullptr) {
    child run = start_fxsctl(arguments, process);
    int const exit_code = run.wait();
    return {exit_code, run.out, run.err};
}
