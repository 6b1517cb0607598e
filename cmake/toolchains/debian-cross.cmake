# Debian's cross compilers of version 12 (packages g++-12-TRIPLET), static programs, run by qemu-user. The versioned
# packages go together with g++-multilib, the unversioned ones do not. Included by mips.cmake and mipsel.cmake, which
# set FXS_TRIPLET and CMAKE_SYSTEM_PROCESSOR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${FXS_TRIPLET}-gcc-12)
set(CMAKE_CXX_COMPILER ${FXS_TRIPLET}-g++-12)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR})
set(CMAKE_FIND_ROOT_PATH /usr/${FXS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
