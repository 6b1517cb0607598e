// The RTCP XR blocks by the names of the command line.
#pragma once

#include <string>

namespace fxsctl {

// Explains the option; for its help.
extern char const* const xr_help;

// Names separated by commas or blanks ("loss-rle=100,voip-metrics", "all") as the mode text of the process
// ("pkt-loss-rle=100 voip-metrics"), whose own names are understood too. "" stays "". Throws usage for other names.
std::string xr_mode_text(std::string const& option, std::string const& names);

}  // namespace fxsctl
