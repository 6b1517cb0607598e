#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/fxsctl/settings.h"

/// What fxsctl says when it cannot do what it was asked.
namespace fxsctl {

/// Prints on standard error: a line, or with `json` {"error":"...","exit_code":4}.
void complain(bool json, exit_code code, std::string const& message);

/// The subcommand that a misspelt word of the command line may mean; empty: none is near.
std::string suggestion(CLI::App const& app, int argc, char const* const* argv);

/// Whether the command line asks for JSON, even when it cannot be understood.
bool wants_json(int argc, char const* const* argv);

}  // namespace fxsctl
