#pragma once

#include "lib/str.h"

/// What the command line asks for beyond the settings that have a global of their own (control_adr, tdm_device,
/// tunnel_device, ipv4, ipv6, extensions).
struct options {
    int log = 0;         ///< other than 0: keep descriptors 0 to 2. The log threshold is set by call control only.
    int local_port = 0;  ///< UDP port of the control socket; 0: any free one
    str pipe;            ///< base path of the driver's message pipe; empty: none
    bool debug = false;  ///< control socket on all addresses, no real-time priority

    enum class verdict { run, print_version, print_extensions, bad };
    verdict outcome = verdict::run;  ///< of the arguments read so far

    /// Reads the arguments from left to right into this object and the globals. `--version` and `--extensions help` end
    /// the scan; an unknown argument or extension or a missing value makes the line bad, but the scan goes on.
    verdict scan(int argc, char const* const* argv);
};
