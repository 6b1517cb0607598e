#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/fxsline/driver_links.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/line_mount.h"

/// The command line of fxsline.
namespace fxsline {

/// How the program ends.
enum exit_status {
    exit_ended = 0,           ///< by a signal, or unmounted from outside
    exit_bad_options = 1,     ///< command line, or a file to be said that can't be used
    exit_no_fuse = 2,         ///< no FUSE here, or not for this user
    exit_bad_mountpoint = 3,  ///< no directory, or in use
    exit_not_recorded = 4,    ///< a recording or the LED's timeline could not be created or written
    exit_no_links = 5,        ///< the message pipe or the signalling device could not be created
};

struct program_options {
    mount_config mount;
    bank_config bank;
    std::map<unsigned, std::string> heard_files;  ///< by line: what the telephone hears goes there
    std::map<unsigned, std::string> said_files;   ///< by line: what it says, on the same time axis
    links_config links;
    std::string led_file;  ///< the LED's timeline goes there at the end; empty: it is printed
    bool json = false;
    bool quiet = false;
};

struct parsed_options {
    std::optional<program_options> options;
    int status = exit_ended;  ///< what to exit with when there are no options (after --help, or an error)
};

/// Prints help and errors itself.
parsed_options parse_options(int argc, char** argv);

}  // namespace fxsline
