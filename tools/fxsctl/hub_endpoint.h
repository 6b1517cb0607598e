// Where a running monitor can be reached by other runs of fxsctl.
//
// It is a SOCK_SEQPACKET socket in Linux's abstract namespace, named after the control port of the process. Such a
// name vanishes with the program that holds it, so nothing stale can be left behind, and it lives in the same
// network namespace as the port it stands for. Since it has no file permissions, both ends check that the other one
// runs as the same user or as root.
#pragma once

#include <string>

#include "tools/fxsctl/settings.h"

namespace fxsctl {

// Both return a descriptor, or -1 with errno set: connect fails when no monitor runs, listen (EADDRINUSE) when one does.
int connect_to_hub(settings const& global);
int listen_as_hub(settings const& global);

// Whether the program at the other end of a connected hub socket is ours or root's.
bool trusted_peer(int fd);

}  // namespace fxsctl
