# 32-bit MIPS, big-endian (mips32r2, o32, glibc).
set(CMAKE_SYSTEM_PROCESSOR mips)
set(FXS_TRIPLET mips-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
