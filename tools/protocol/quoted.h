// Texts of unknown content as the tools print them on a terminal.
#pragma once

#include <string>

namespace protocol {

// Every byte that is no printable ASCII as \xNN, quotes and backslashes behind a backslash; in quotes when that changed
// anything, or when the text is empty or holds blanks or "=".
std::string quoted(std::string const& text);

}  // namespace protocol
