#pragma once

#include <iomanip>

#include "tests/tools/child.h"

/// fxsctl, started with these arguments (quotation marks hold words together) for the process on this port, if any.
inline child start_fxsctl(std::string const& arguments, int port = 0) {
    std::istringstream in(arguments);
    std::vector<std::string> words{FXSCTL};
    for (std::string word; in >> std::quoted(word);)
        words.push_back(word);
    setenv("FXSMEDIA_PORT", port != 0 ? std::to_string(port).c_str() : "", 1);
    return child(words);
}

struct outcome {
    int exit_code;
    std::string out, err;
};

/// The same to its end.
inline outcome run_fxsctl(std::string const& arguments, int port = 0) {
    child run = start_fxsctl(arguments, port);
    int const exit_code = run.wait();
    return {exit_code, run.out, run.err};
}
