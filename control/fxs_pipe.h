#pragma once

#include "lib/retry_pause.h"
#include "lib/str.h"

/// The message pipe of the telephone-line driver: two named pipes. What the driver writes are text lines, each of
/// which goes to call control as one message; nothing is written to the driver.

extern int fxs_in_fd;             ///< the driver's text lines; -1 when not open
extern retry_pause fxs_in_pause;  ///< of fxs_in_fd
extern int fxs_out_fd;            ///< towards the driver; opened, never written; -1 when not open

/// Opens the path followed by "0" and the path followed by "1", both read-write so that opening never waits for the
/// other side. A failure leaves the descriptor at -1.
void open_fxs_pipe(str const& base_path);

/// Reads what the driver wrote and sends every complete line. What follows a line is stripped of CR and LF at both
/// ends before it is looked at again, so a second complete line of one read loses its line feed and is sent joined to
/// the bytes that arrive next; empty lines are sent too. A line of more than 65,503 bytes, the CR and LF around it not
/// counted, fits no datagram and is lost without a message; it takes no more memory than one that fits.
///
/// At the end of the file it is closed for good; a named pipe has no end as long as this process holds both its sides
/// open. After an error it pauses and stays open.
void process_fxs_input();
