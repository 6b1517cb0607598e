# 32-bit MIPS, big-endian (mips32r2, o32), musl.
set(FXS_MACHINE mips)
include(${CMAKE_CURRENT_LIST_DIR}/musl.cmake)
