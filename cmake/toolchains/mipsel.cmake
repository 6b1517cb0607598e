# 32-bit MIPS, little-endian (mips32r2, o32, glibc).
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(FXS_TRIPLET mipsel-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
