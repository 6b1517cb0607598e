#pragma once

#include <string>
#include <vector>

#include "tools/protocol/bytes.h"

/// The worked datagrams of docs/control-protocol.md, so that tests hold the page and the programs to each
/// other.
///
/// In the page each stands in a fenced block whose first line names it:
///
///   ```hex open-call-0 command reply=open-reply needs=line
///   00 10 00 08   # what these bytes are
///   ```
///
/// "command" or "report" is the direction. reply= names the report that answers the command, needs= what must
/// be there for that. "??" stands for a byte that differs from run to run (reports only).
namespace protocol {

struct worked_datagram {
    std::string name;
    bool is_command = false;
    std::string reply;           ///< name of the report that answers it, empty for none
    std::string needs;           ///< e.g. "line"; empty for nothing
    bytes data;                  ///< 0 where any byte may stand
    std::vector<bool> any_byte;  ///< as long as data

    /// Same length and same bytes wherever they are fixed.
    bool matches(byte_view datagram) const;
};

/// In the page's order. Throws std::runtime_error with file and line when the page cannot be read or is
/// malformed, or holds none at all: a test must not pass because nothing was found.
std::vector<worked_datagram> load_worked_datagrams(std::string const& path);

}  // namespace protocol
