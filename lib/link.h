#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// The link to call control: one UDP socket and one peer. Everything that the process reports leaves here; no
/// message's meaning is known here.

/// The socket on which commands arrive and from which all messages leave; -1 until start-up opened it.
extern int command_fd;

/// The peer: 127.0.0.1 port 1299 until options or a session command say otherwise.
extern ip_port control_adr;

/// Sends a finished message as one datagram. Returns what the send returned; callers need not look.
int send_command(str const& message);
