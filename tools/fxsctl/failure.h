// How a run of fxsctl ends: the exit codes that scripts may rely on, and the exception that carries one outwards.
#pragma once

#include <stdexcept>
#include <string>

namespace fxsctl {

enum class exit_code {
    ok = 0,
    usage = 2,      // wrong or missing arguments; nothing was sent
    no_answer = 3,  // the process (or the monitor in between) did not answer in time
    refused = 4,    // the process answered that it could not, or answered everything but this command
    local = 5,      // a socket or file on this side could not be used
};

class failure : public std::runtime_error {
public:
    failure(exit_code code, std::string const& message) : std::runtime_error(message), exits_with(code) {}
    exit_code code() const { return exits_with; }

private:
    exit_code exits_with;
};

}  // namespace fxsctl
