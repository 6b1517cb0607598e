// Opening a call and its answer, as `open` and `call` do it.
#pragma once

#include <string>

#include "tools/fxsctl/connection.h"
#include "tools/protocol/commands.h"

namespace fxsctl {

// Opens command.call (which must be set). Throws refused when the process could bind no ports.
inline protocol::open_reply open_call(connection& link, protocol::open_command const& command) {
    std::uint16_t const call = command.call.value_or(0);
    std::string const name = "call " + std::to_string(call);
    auto const reply = link.request<protocol::open_reply>(
        protocol::encode(command), "the process did not answer the opening of " + name,
        [call](protocol::open_reply const& candidate) { return candidate.call == call; });
    if (reply.rtp_port == 0)
        throw failure(exit_code::refused, name + ": the process found no free pair of ports in the range");
    return reply;
}

}  // namespace fxsctl
