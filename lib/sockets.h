#pragma once

#include "lib/address.h"
#include "lib/datagram.h"
#include "lib/str.h"

/// Opening and closing sockets, and TCP; lib/datagram.h is what UDP sockets are used with. Descriptors are plain ints,
/// -1 means none. Every socket is non-blocking; the main loop decides when to read and write. Failures are logged,
/// reported by -1 or an empty string, and never retried.
namespace utils {

inline bool valid_socket(int fd) {
    return fd >= 0;
}

/// Moves on whenever a socket is opened or closed here: who keeps a list of open ones makes it anew then.
extern unsigned socket_changes;

/// A datagram socket bound to the any-address. IPv6 sockets take IPv6 only, so that the same port can be held
/// in both families. On bind failure logs "UDP: bind() to port %d failed" (IPv6: "UDPv6: ...", level 0).
int open_udp_socket(int port, bool over_ipv6);
/// The same for IPv4, bound to 127.0.0.1.
int open_loopback_socket(int port);
void close_udp_socket(int fd);

/// Starts connecting a stream socket; the connection completes later (the socket becomes writable). Failures
/// are logged and give -1.
int open_tcp_client(ip_port const& to);
/// What has arrived, at most 65536 bytes; empty when nothing did, on errors and when the peer closed.
str recv_tcp_packet(int fd);
/// Sends what the socket accepts and leaves the unsent tail in `data`. An error clears it (the bytes are
/// lost) and is logged at level 8.
void send_tcp_packet(int fd, str& data);
void close_tcp_socket(int fd);

/// The local address (compact form) that the system would use towards a destination. Empty on failure, and for a
/// destination of neither 4 nor 16 bytes nor none (the any-address). Sends nothing.
str local_address_for(str const& destination);

/// Whether what came from `source` was sent through the IPv4 datagram socket fd, that is by this process itself.
bool is_own_address(int fd, ip_port const& source);

}  // namespace utils
