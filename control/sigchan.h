#pragma once

#include "lib/retry_pause.h"
#include "lib/str.h"

/// The serial signalling device: a transparent relay of bytes between the line's other side and call control. Bytes
/// are neither interpreted nor framed nor buffered.

extern str tunnel_device;          ///< path given by an option; empty: no device
extern int sigchan_fd;             ///< -1 until opened
extern retry_pause sigchan_pause;  ///< of sigchan_fd

/// Opens the device raw and non-blocking at 115200 baud; an empty path does nothing. A failure is logged (level 0)
/// and leaves the process without the device.
void sigchan_open(str const& path);

/// Reads once, at most 1024 bytes, and sends what came as one message. Nothing read, or an error: the device pauses, as
/// one that hung up would be readable for ever; it stays open.
void sigchan_process();

/// Writes all bytes at once. What the device does not take is lost and logged (level 3).
void sigchan_send(str const& data);
