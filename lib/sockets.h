#pragma once

#include "lib/address.h"
#include "lib/rtimestamp.h"
#include "lib/str.h"

/// Socket primitives. Descriptors are plain ints, -1 means none. Every socket is non-blocking; the main loop
/// decides when to read and write. Failures are reported by -1 or an empty string, never retried.
///
/// One receive buffer of 65536 bytes serves all receive operations; what arrived is copied out of it before
/// they return.
namespace utils {

inline bool valid_socket(int fd) {
    return fd >= 0;
}

/// A datagram socket bound to the any-address. IPv6 sockets take IPv6 only, so that the same port can be held
/// in both families. On bind failure logs "UDP: bind() to port %d failed" (IPv6: "UDPv6: ...", level 0).
int open_udp_socket(int port, bool over_ipv6);
/// The same for IPv4, bound to 127.0.0.1.
int open_loopback_socket(int port);
void close_udp_socket(int fd);

/// One sendto() with a socket address of the family that fits the address; returns what it returned. -1, and nothing
/// sent, when the address has neither 4 nor 16 bytes nor none (the any-address).
int send_udp_packet(int fd, ip_port const& to, str const& data);
/// One datagram, without waiting. `from` receives the sender; empty (and `from` unchanged) when nothing came.
str recv_udp_packet4(int fd, ip_port& from);
str recv_udp_packet6(int fd, ip_port& from);

/// The kernel's arrival stamp of the datagram read last, as time of day in ticks; 0 when it cannot be had. The
/// first call on a socket switches stamping on and answers with the time of the call.
rtimestamp receive_stamp(int fd);

/// A kernel stamp moved to the process clock: now less the stamp's age by the time of day. Without a stamp (0), or
/// with one from the future, now.
rtimestamp on_process_clock(rtimestamp const& stamp);

/// Starts connecting a stream socket; the connection completes later (the socket becomes writable). Failures
/// are logged and give -1.
int open_tcp_client(ip_port const& to);
/// What has arrived, at most 65536 bytes; empty when nothing did, on errors and when the peer closed.
str recv_tcp_packet(int fd);
/// Sends what the socket accepts and leaves the unsent tail in `data`. An error clears it (the bytes are
/// lost) and is logged at level 8.
void send_tcp_packet(int fd, str& data);
void close_tcp_socket(int fd);

/// The local address (compact form) that the system would use towards a destination; empty on failure. Sends
/// nothing.
str local_address_for(str const& destination);

}  // namespace utils
