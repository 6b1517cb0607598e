#pragma once

#include <string>

#include "tools/fxsctl/settings.h"

/// Where other runs of fxsctl reach a running monitor.
///
/// It is a SOCK_SEQPACKET socket in Linux's abstract namespace, named after the control port of the process. Such a
/// name ends with the program that holds it, and belongs to the same network namespace as the port. It has no file
/// permissions, so both ends check that the other one runs as the same user or as root.
namespace fxsctl {

/// Both return a descriptor, or -1 with errno set: connecting fails when no monitor runs, listening (EADDRINUSE) when
/// one does.
int connect_to_hub(settings const& global);
int listen_as_hub(settings const& global);

/// Whether the program at the other end of a connected hub socket is ours or root's.
bool trusted_peer(int fd);

}  // namespace fxsctl
