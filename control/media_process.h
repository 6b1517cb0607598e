#pragma once

struct options;

/// Opens everything, raises the process's priority, sends the first heartbeat and runs the main loop; never
/// returns. What cannot be opened stays closed and the process runs without it.
[[noreturn]] void start_media_process(options const& chosen);

/// Sends the empty session message by which call control sees that the process is alive, now and every second
/// from then on.
void heartbeat();
