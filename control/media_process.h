#pragma once

struct options;

/// Opens everything, raises the process's priority and sends the first heartbeat; the main loop does the rest.
/// What cannot be opened stays closed and the process runs without it.
void start_media_process(options const& chosen);

/// Sends the empty session message by which call control sees that the process is alive, now and every second
/// from then on.
void heartbeat();
