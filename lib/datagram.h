#pragma once

#include "lib/address.h"
#include "lib/rtimestamp.h"
#include "lib/str.h"

/// Datagrams, and the link to call control that is made of them. Nothing here logs: log lines leave through the link.

// ---- the link to call control: one UDP socket and one peer. No message's meaning is known here.

/// The socket on which commands arrive and from which all messages leave; -1 until start-up opened it.
extern int command_fd;

/// The peer: 127.0.0.1 port 1299 until options or a session command say otherwise.
extern ip_port control_adr;

/// Sends a finished message as one datagram. Returns what the send returned; callers need not look.
int send_command(str const& message);

namespace utils {

/// Serves all receive operations, of datagrams and streams; they copy out what arrived before they return.
extern unsigned char receive_buffer[65536];  // no datagram is larger

/// One sendto() with a socket address of the family that fits the address; returns what it returned. -1, and nothing
/// sent, when the address has neither 4 nor 16 bytes nor none (the any-address).
int send_udp_packet(int fd, ip_port const& to, str const& data);
int send_udp_packet(int fd, socket_address const& to, str const& data);
/// One datagram, without waiting. `from` receives the sender, but keeps an address that is the right one already; empty
/// (and `from` unchanged) when nothing came. `stamp`: the kernel's arrival stamp, time of day in ticks; 0: it has none.
str recv_udp_packet4(int fd, ip_port& from, rtimestamp* stamp = nullptr);
str recv_udp_packet6(int fd, ip_port& from, rtimestamp* stamp = nullptr);

/// Has the kernel stamp what arrives on a socket from now on, and hand the stamps over with the datagrams; where it
/// doesn't do that, each is asked for.
void start_stamping(int fd);
/// Asks for the arrival stamp of the datagram read last. The first such request on a socket switches stamping on and
/// answers with the time of the call.
rtimestamp receive_stamp(int fd);

/// The time of day, the clock of kernel stamps, in ticks.
rtimestamp time_of_day();
/// A kernel stamp moved to the process clock: now less the stamp's age by the time of day. Without a stamp (0), or
/// with one from the future, now.
rtimestamp on_process_clock(rtimestamp const& stamp);

}  // namespace utils
