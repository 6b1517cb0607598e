#pragma once

/// Writes a pattern to the first line device until it comes back: 1 when it did within 32 blocks, else 0. Holds the
/// whole process meanwhile, without time limit while the device gives nothing to read.
int loopback_test();
