// Opening a call and its answer, as `open` and `call` do it.
#pragma once

#include <string>

#include "tools/fxsctl/connection.h"
#include "tools/protocol/commands.h"

namespace fxsctl {

// Opens command.call (which must be set). Throws refused when the process could bind no ports.
inline protocol::open_reply open_call(connection& link, const protocol::open_command& command) {
    const std::uint16_t call = command.call.value_or(0);
    const std::string name = "call " + std::to_string(call);
    const auto reply = link.request<protocol::open_reply>(
        protocol::encode(command), "the process did not answer the opening of " + name,
        [call](const protocol::open_reply& candidate) { return candidate.call == call; });
    if (reply.rtp_port == 0) {
        throw failure(exit_code::refused, name + ": the process found no free pair of ports in the range");
    }
    return reply;
}

}  // namespace fxsctl
