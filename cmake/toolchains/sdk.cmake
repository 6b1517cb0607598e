# The toolchain of a device's SDK (Buildroot, OpenWrt, crosstool-NG, ...), with any C library:
#
#     cmake -B build/device -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/sdk.cmake -DFXS_SDK=/opt/sdk/bin/mips-linux-
#
# FXS_SDK      path and prefix of its programs
# FXS_SYSROOT  where its headers and libraries are, when the compiler does not know
# FXS_CPU      name of its processor for find_package and the emulator qemu-FXS_CPU (default: what the prefix says)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FXS_SDK FXS_SYSROOT FXS_CPU)
if(NOT FXS_CPU)
    string(REGEX REPLACE "^.*/([^/-]+)-[^/]*$" "\\1" FXS_CPU "${FXS_SDK}")
endif()
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${FXS_CPU})
set(CMAKE_C_COMPILER ${FXS_SDK}gcc)
set(CMAKE_CXX_COMPILER ${FXS_SDK}g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${FXS_CPU})
if(FXS_SYSROOT)
    set(CMAKE_SYSROOT ${FXS_SYSROOT})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
