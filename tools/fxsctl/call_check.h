#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tools/fxsctl/connection.h"
#include "tools/protocol/description.h"

/// Whether a command can work, found out from outside: the process acknowledges nothing but the opening of a call.
/// What cannot be seen (a process of another user or machine, calls without an identifier) is taken to be in order.
namespace fxsctl {

struct call_ports {
    std::uint16_t rtp = 0;
    std::uint16_t rtcp = 0;
};

/// Which of these calls are open, with their ports. The process is told to send a few bytes to this program from the
/// ports of each: one that is not open sends none. Throws no_answer.
std::map<std::uint16_t, call_ports> open_calls(connection& link, std::vector<std::uint16_t> const& calls);
std::vector<std::uint16_t> every_call();
/// Whether a command is the one by which open_calls() asks.
bool is_probe(protocol::description const& command);

/// Throws refused with the reason when the call is not open.
void require_open(connection& link, std::uint16_t call);

/// After the call was put on the line. Throws refused: the device is missing or was not opened, or two calls have the
/// line already.
void require_on_line(connection& link, std::uint16_t call, std::uint16_t line);

/// Throws refused when the call is known to be on no line, so that nothing is played or sent.
void require_any_line(connection& link, std::uint16_t call);

/// Throws refused when the call is known to send nowhere.
void require_destination(connection& link, std::uint16_t call);

/// Waits until the calls, just put on these lines, send audio. Throws refused with the reason when they don't.
void require_audio(connection& link, std::vector<std::uint16_t> const& calls, std::vector<std::uint16_t> const& lines);

/// Throws refused when the process has no signalling device.
void require_signalling(connection& link);

}  // namespace fxsctl
