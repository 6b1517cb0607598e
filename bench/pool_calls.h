#pragma once

/// Blocks asked of the pool so far: calls of str::get_cstring_static, str::malloc and operator new from outside
/// lib/str_pool.cpp. The linker puts the counters in between (--wrap, see CMakeLists.txt), so that the process's own
/// code knows nothing of it.
long pool_calls();
