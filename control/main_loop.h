#pragma once

/// The process's one loop: waits in select() until a descriptor is ready or the next timeout is due, then services
/// every ready descriptor in a fixed order, or else fires one timeout. Never returns.
[[noreturn]] void main_loop();
