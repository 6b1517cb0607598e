#pragma once

/// One pass of the process's loop: waits in select() until a descriptor is ready or the next timeout is due, then
/// services every ready descriptor in a fixed order, or else fires one timeout. A descriptor whose last read gave
/// nothing is left out until its pause is over (lib/retry_pause.h).
void main_loop_pass();

/// Pass after pass; never returns.
[[noreturn]] void main_loop();
